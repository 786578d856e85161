// SPDX-License-Identifier: MIT
// The process-wide table of slots: numbered functions that every peer may
// call. The dispatch thread is its only reader.
#ifndef VXBUS_MESSAGING_SLOT_TABLE_H_
#define VXBUS_MESSAGING_SLOT_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <vector>

#include "vxbus.h"

namespace vxbus {

class VXSlotTable {
 public:
  struct Entry {
    std::uint32_t slotId;
    VXSlotFunction slotFunction;
    void* userData;
  };

  // Held by the dispatch thread across each slot function; recursive so that
  // a slot function may register and unregister slots, itself included.
  std::recursive_mutex& Mutex() { return mutex_; }

  // A second registration of an id replaces function and user data in place.
  void Register(std::uint32_t slotId, VXSlotFunction slotFunction, void* userData);
  // False when the id is not registered.
  bool Unregister(std::uint32_t slotId);
  // Copies the entry of `slotId` into `entry`; false when there is none. The
  // caller that is about to run the function holds Mutex() already.
  bool Find(std::uint32_t slotId, Entry* entry);
  std::size_t Size();
  // The registered ids, ascending. Takes only a lock of its own, so it never
  // waits for a running slot function.
  std::vector<std::uint32_t> Ids();

 private:
  std::recursive_mutex mutex_;
  std::map<std::uint32_t, Entry> slots_;
  std::mutex idsMutex_;  // inside mutex_ when both are held
  std::set<std::uint32_t> ids_;
};

}  // namespace vxbus

#endif  // VXBUS_MESSAGING_SLOT_TABLE_H_
