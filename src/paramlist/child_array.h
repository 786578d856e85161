// SPDX-License-Identifier: MIT
// The growable array of smart pointers in which a list keeps its nested lists
// alive. Storage comes from the private heap.
#ifndef VXBUS_PARAMLIST_CHILD_ARRAY_H_
#define VXBUS_PARAMLIST_CHILD_ARRAY_H_

#include <cstdint>
#include <new>
#include <utility>

#include "runtime/private_heap.h"
#include "runtime/referenced_ptr.h"

namespace vxbus {

template <class T>
class RefPtrArray {
 public:
  using Ref = MTObjects::MTReferencedPtr<T>;

  RefPtrArray() = default;
  ~RefPtrArray() {
    Truncate(0);
    PrivateFree(items_);
  }
  RefPtrArray(const RefPtrArray&) = delete;
  RefPtrArray& operator=(const RefPtrArray&) = delete;

  std::uint32_t Size() const { return size_; }
  std::uint32_t Capacity() const { return capacity_; }
  bool Empty() const { return size_ == 0; }
  Ref& operator[](std::uint32_t i) { return items_[i]; }
  const Ref& operator[](std::uint32_t i) const { return items_[i]; }

  // Adds a reference of the array's own. False, and nothing added, when the
  // heap refuses to grow the array.
  bool Push(const Ref& item) {
    T* p = item.get();  // `item` may stand in this array and move when it grows
    if (size_ == capacity_ && !Grow(size_ + 1)) return false;
    new (&items_[size_]) Ref(p);
    ++size_;
    return true;
  }
  bool Push(T* item) { return Push(Ref(item)); }

  // Room for n more entries, so that the next n pushes cannot fail; false
  // when the heap refuses.
  bool MakeRoom(std::uint32_t n) { return size_ + n <= capacity_ || Grow(size_ + n); }

  // Removes entry i, keeping the order of the others, and releases it.
  void Erase(std::uint32_t i) {
    for (; i + 1 < size_; ++i)
      items_[i] = std::move(items_[i + 1]);
    Truncate(size_ - 1);
  }

  // Releases every entry and keeps the allocation.
  void Clear() { Truncate(0); }

  // Releases the entries from position n on.
  void Truncate(std::uint32_t n) {
    while (size_ > n)
      items_[--size_].~Ref();
  }

 private:
  // One and a half times the capacity or the need, whichever is larger, and
  // at least one. Entries are copied with a reference added and the old ones
  // released, so the counts stay right at every step.
  bool Grow(std::uint32_t need) {
    std::uint32_t next = capacity_ + capacity_ / 2;
    if (next < need) next = need;
    if (next < 1) next = 1;
    auto* fresh = static_cast<Ref*>(PrivateAllocate(sizeof(Ref) * static_cast<std::size_t>(next)));
    if (fresh == nullptr) return false;
    for (std::uint32_t i = 0; i < size_; ++i)
      new (&fresh[i]) Ref(items_[i]);
    for (std::uint32_t i = 0; i < size_; ++i)
      items_[i].~Ref();
    PrivateFree(items_);
    items_ = fresh;
    capacity_ = next;
    return true;
  }

  Ref* items_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;
};

}  // namespace vxbus

#endif  // VXBUS_PARAMLIST_CHILD_ARRAY_H_
