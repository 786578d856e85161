// SPDX-License-Identifier: MIT
#include "messaging/slot_table.h"

#include "messaging/messaging_context.h"

namespace vxbus {

using Lock = std::lock_guard<std::recursive_mutex>;

void VXSlotTable::Register(std::uint32_t slotId, VXSlotFunction slotFunction, void* userData) {
  Lock lock(mutex_);
  Entry& entry = slots_[slotId];
  entry.slotId = slotId;
  entry.slotFunction = slotFunction;
  entry.userData = userData;
  std::lock_guard<std::mutex> ids(idsMutex_);
  ids_.insert(slotId);
}

bool VXSlotTable::Unregister(std::uint32_t slotId) {
  Lock lock(mutex_);
  std::lock_guard<std::mutex> ids(idsMutex_);
  ids_.erase(slotId);
  return slots_.erase(slotId) != 0;
}

std::vector<std::uint32_t> VXSlotTable::Ids() {
  std::lock_guard<std::mutex> ids(idsMutex_);
  return std::vector<std::uint32_t>(ids_.begin(), ids_.end());
}

bool VXSlotTable::Find(std::uint32_t slotId, Entry* entry) {
  Lock lock(mutex_);
  auto it = slots_.find(slotId);
  if (it == slots_.end()) return false;
  *entry = it->second;
  return true;
}

std::size_t VXSlotTable::Size() {
  Lock lock(mutex_);
  return slots_.size();
}

}  // namespace vxbus

using vxbus::Messaging;

// No id is tested: the built-in ids are reserved by convention only, and an
// application may replace or remove their handlers.
_tag_VX_ERROR VXRegisterSlot(std::uint32_t slotId, VXSlotFunction slotFunction, void* userData) {
  Messaging().Slots().Register(slotId, slotFunction, userData);
  return VX_SUCCESS;
}

_tag_VX_ERROR VXRegisterSlots(const _tag_SLOT_DESCRIPTION* slots, int count) {
  if (slots == nullptr) return VX_SUCCESS;
  for (int i = 0; i < count; ++i) {
    // The records are packed; copy the fields out rather than bind references.
    const std::uint32_t slotId = slots[i].slotId;
    const VXSlotFunction slotFunction = slots[i].slotFunction;
    void* const userData = slots[i].userData;
    VXRegisterSlot(slotId, slotFunction, userData);
  }
  return VX_SUCCESS;
}

_tag_VX_ERROR VXUnregisterSlot(std::uint32_t slotId) {
  return Messaging().Slots().Unregister(slotId) ? VX_SUCCESS : VX_ERROR_NO_SLOT;
}
