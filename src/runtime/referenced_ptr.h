// SPDX-License-Identifier: MIT
// The intrusive smart pointer over MTReferencedTypeBase.
#ifndef VXBUS_RUNTIME_REFERENCED_PTR_H_
#define VXBUS_RUNTIME_REFERENCED_PTR_H_

#include <cstdint>
#include <utility>

#include "vxbus.h"

namespace MTObjects {

// The library's way to the protected count operations of the base.
struct ReferenceAccess {
  static void AddRef(MTReferencedTypeBase* p) { p->AddRef(); }
  static void Release(MTReferencedTypeBase* p) { p->Release(); }
  static bool IsValid(const MTReferencedTypeBase* p) { return p->IsValid(); }
  static std::int32_t Count(const MTReferencedTypeBase* p) { return p->refCounter_.value.load(); }
  static void AddRefs(MTReferencedTypeBase* p, std::int32_t count) {
    p->refCounter_.value.fetch_add(count);
  }
  // Never the last references: see ReferenceBlock.
  static void ReleaseUnused(MTReferencedTypeBase* p, std::int32_t count) {
    p->refCounter_.value.fetch_sub(count);
  }
};

template <class T>
class MTReferencedPtr {
 public:
  MTReferencedPtr() : p_(nullptr) {}
  MTReferencedPtr(T* p) : p_(p) {  // NOLINT: implicit by design, like a raw owner
    if (p_) ReferenceAccess::AddRef(p_);
  }
  MTReferencedPtr(const MTReferencedPtr& other) : MTReferencedPtr(other.p_) {}
  MTReferencedPtr(MTReferencedPtr&& other) noexcept : p_(other.p_) { other.p_ = nullptr; }
  template <class U>
  MTReferencedPtr(const MTReferencedPtr<U>& other) : MTReferencedPtr(other.get()) {}
  ~MTReferencedPtr() {
    if (p_) ReferenceAccess::Release(p_);
  }

  // Takes over a reference that the caller already owns.
  static MTReferencedPtr Adopt(T* p) {
    MTReferencedPtr r;
    r.p_ = p;
    return r;
  }

  MTReferencedPtr& operator=(T* p) {
    if (p_ == p) return *this;
    if (p_) ReferenceAccess::Release(p_);
    p_ = p;
    if (p_) ReferenceAccess::AddRef(p_);
    return *this;
  }
  MTReferencedPtr& operator=(const MTReferencedPtr& other) { return *this = other.p_; }
  MTReferencedPtr& operator=(MTReferencedPtr&& other) noexcept {
    if (this != &other) {
      T* old = p_;
      p_ = other.p_;
      other.p_ = nullptr;
      if (old) ReferenceAccess::Release(old);
    }
    return *this;
  }

  // Hands the reference to the caller; the pointer becomes null.
  T* Detach() {
    T* p = p_;
    p_ = nullptr;
    return p;
  }
  void Reset() { *this = static_cast<T*>(nullptr); }

  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  // True when there is an object and its validity predicate agrees.
  bool IsValid() const { return p_ != nullptr && ReferenceAccess::IsValid(p_); }

 private:
  T* p_;
};

// Hands out references to one object, taken from its count in blocks, for
// a thread that makes many short-lived holders of an object whose count
// other threads release into: one write of the shared count per block
// instead of one per holder. One thread only. The caller keeps a reference
// of its own for the block's whole life, so that giving back the unused ones
// at the end never destroys the object.
template <class T>
class ReferenceBlock {
 public:
  explicit ReferenceBlock(T* object) : object_(object) {}
  ~ReferenceBlock() {
    if (left_ != 0) ReferenceAccess::ReleaseUnused(object_, left_);
  }
  ReferenceBlock(const ReferenceBlock&) = delete;
  ReferenceBlock& operator=(const ReferenceBlock&) = delete;

  MTReferencedPtr<T> Take() {
    if (left_ == 0) {
      ReferenceAccess::AddRefs(object_, kBlock);
      left_ = kBlock;
    }
    --left_;
    return MTReferencedPtr<T>::Adopt(object_);
  }

 private:
  static constexpr std::int32_t kBlock = 64;
  T* object_;
  std::int32_t left_ = 0;
};

template <class T, class U>
bool operator==(const MTReferencedPtr<T>& a, const MTReferencedPtr<U>& b) {
  return a.get() == b.get();
}
template <class T, class U>
bool operator!=(const MTReferencedPtr<T>& a, const MTReferencedPtr<U>& b) {
  return a.get() != b.get();
}

}  // namespace MTObjects

#endif  // VXBUS_RUNTIME_REFERENCED_PTR_H_
