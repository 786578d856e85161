// SPDX-License-Identifier: MIT
// VX::ParamListHolder: a value type owning one reference to a list. Nearly
// every member forwards to the exported list functions; what each adds is the
// reference bookkeeping.
#include "runtime/private_heap.h"
#include "vxbus.h"

namespace VX {

namespace {

const HVXPARAMLIST kNullHandle = {nullptr};

bool IsNull(HVXPARAMLIST handle) {
  return handle.value == nullptr;
}

// Drops one reference; closing a null handle is a no-op.
void Release(HVXPARAMLIST handle) {
  VXCloseHandle(handle);
}

}  // namespace

// ---------------------------------------------------------------------------
// Ownership
// ---------------------------------------------------------------------------

ParamListHolder ParamListHolder::FromHandle(HVXPARAMLIST handle) {
  return ParamListHolder(VXReferenceHandle(handle));
}

ParamListHolder ParamListHolder::FromRefHandle(HVXPARAMLIST handle) {
  return ParamListHolder(handle);
}

ParamListHolder::ParamListHolder() : handle_(kNullHandle) {}

// Adopts the handle: callers have already arranged the reference.
ParamListHolder::ParamListHolder(HVXPARAMLIST handle) : handle_(handle) {}

ParamListHolder::ParamListHolder(const ParamListHolder& other)
    : handle_(VXReferenceHandle(other.handle_)) {}

ParamListHolder::ParamListHolder(ParamListHolder&& other) : handle_(other.handle_) {
  other.handle_ = kNullHandle;
}

ParamListHolder::~ParamListHolder() {
  if (!IsNull(handle_)) Release(handle_);
}

// The new list is referenced before the old one goes, so assigning a holder to
// itself, or to another holder of the same list, never drops the count to 0.
void ParamListHolder::operator=(const ParamListHolder& other) {
  *this = other.handle_;
}

void ParamListHolder::operator=(const HVXPARAMLIST& handle) {
  HVXPARAMLIST incoming = VXReferenceHandle(handle);
  HVXPARAMLIST old = handle_;
  handle_ = incoming;
  if (!IsNull(old)) Release(old);
}

// Exchanges rather than empties: the source is left with what this held.
void ParamListHolder::operator=(ParamListHolder&& other) {
  swap(other);
}

void ParamListHolder::swap(ParamListHolder& other) {
  HVXPARAMLIST mine = handle_;
  handle_ = other.handle_;
  other.handle_ = mine;
}

void ParamListHolder::swap(ParamListHolder& a, ParamListHolder& b) {
  a.swap(b);
}

bool ParamListHolder::operator!() const {
  return IsNull(handle_);
}

// Null when the heap refuses, as VXAllocate; being noexcept, the
// new-expression then gives null and constructs nothing.
void* ParamListHolder::operator new(std::size_t size) noexcept {
  return vxbus::PrivateAllocate(size);
}

void ParamListHolder::operator delete(void* pointer) {
  vxbus::PrivateFree(pointer);
}

// ---------------------------------------------------------------------------
// The list as a whole
// ---------------------------------------------------------------------------

bool ParamListHolder::NewList() {
  ClearList();
  handle_ = VXCreateParamList();
  return !IsNull(handle_);
}

// Lets go of the list without touching its contents: other owners keep them.
bool ParamListHolder::ClearList() {
  HVXPARAMLIST old = handle_;
  handle_ = kNullHandle;
  if (!IsNull(old)) Release(old);
  return true;
}

ParamListHolder ParamListHolder::Clone() const {
  return FromRefHandle(VXCloneHandle(handle_));
}

namespace {

// The guards shared by both copy directions. Gives false when the copy may not
// take place; otherwise gives VXCopyHandle's result through `result`.
bool CopyBetween(HVXPARAMLIST source, HVXPARAMLIST& destination, std::int32_t& result) {
  if (IsNull(source) || source == destination) return false;
  if (IsNull(destination)) {
    destination = VXCreateParamList();
    if (IsNull(destination)) return false;
  }
  result = VXCopyHandle(source, destination);
  return true;
}

}  // namespace

// VXCopyHandle always gives 0, so this answers false even after a copy; the
// result is kept as applications have always seen it.
bool ParamListHolder::CopyDataTo(ParamListHolder& other) {
  std::int32_t result = 0;
  if (!CopyBetween(handle_, other.handle_, result)) return false;
  return result != 0;
}

bool ParamListHolder::CopyDataFrom(ParamListHolder& other) {
  std::int32_t result = 0;
  if (!CopyBetween(other.handle_, handle_, result)) return false;
  return result == 0;
}

std::uint32_t ParamListHolder::GetCount() const {
  return VXGetParamCount(handle_);
}

std::uint32_t ParamListHolder::GetSize() const {
  return VXGetHandleSize(handle_);
}

bool ParamListHolder::empty() const {
  return IsNull(handle_) || GetCount() == 0;
}

// ---------------------------------------------------------------------------
// Parameter records
// ---------------------------------------------------------------------------

const VXPARAMINFO* ParamListHolder::GetFirst() const {
  return VXGetFirstParam(handle_);
}

const VXPARAMINFO* ParamListHolder::GetNext(const VXPARAMINFO* info) const {
  return VXGetNextParam(handle_, info);
}

const VXPARAMINFO* ParamListHolder::GetInfo(const char* name) const {
  return VXParamInfo(handle_, name);
}

bool ParamListHolder::Exists(const char* name) const {
  return GetInfo(name) != nullptr;
}

PARAM_TYPES ParamListHolder::GetType(const char* name) const {
  const VXPARAMINFO* info = GetInfo(name);
  return info ? static_cast<PARAM_TYPES>(info->GetType()) : PT_UNKNOWN;
}

std::uint32_t ParamListHolder::GetArraySize(const char* name) const {
  const VXPARAMINFO* info = GetInfo(name);
  return info ? info->GetArraySize() : 0;
}

PARAM_TYPES ParamListHolder::GetArrayType(const char* name) const {
  const VXPARAMINFO* info = GetInfo(name);
  return info ? static_cast<PARAM_TYPES>(info->GetArrayType()) : PT_UNKNOWN;
}

// ---------------------------------------------------------------------------
// Getters
// ---------------------------------------------------------------------------

const char* ParamListHolder::GetString(const char* name) const {
  return VXGetStringValue(handle_, name);
}

const char* ParamListHolder::GetString(const char* name, unsigned index) const {
  const VXPARAMINFO* info = GetInfo(name);
  return info ? info->GetString(index) : nullptr;
}

std::uint32_t ParamListHolder::GetInt32(const char* name) const {
  return VXGetInt32Value(handle_, name);
}

std::uint32_t ParamListHolder::GetInt32(const char* name, unsigned index) const {
  const VXPARAMINFO* info = GetInfo(name);
  return info ? info->GetInt32(index) : 0;
}

std::uint64_t ParamListHolder::GetInt64(const char* name) const {
  return VXGetInt64Value(handle_, name);
}

// Reads the 32-bit word at 4 * index of a 64-bit array, as the record accessor
// does; applications depend on that reading.
std::uint64_t ParamListHolder::GetInt64(const char* name, unsigned index) const {
  const VXPARAMINFO* info = GetInfo(name);
  return info ? info->GetInt64(index) : 0;
}

const BINARYVALUE* ParamListHolder::GetBinary(const char* name) const {
  return VXGetBinaryValue(handle_, name);
}

const BINARYVALUE* ParamListHolder::GetBinary(const char* name, unsigned index) const {
  const VXPARAMINFO* info = GetInfo(name);
  return info ? info->GetBinary(index) : nullptr;
}

ParamListHolder ParamListHolder::GetHandle(const char* name) const {
  return FromRefHandle(VXGetHandleValue(handle_, name));
}

ParamListHolder ParamListHolder::GetHandle(const char* name, unsigned index) const {
  const VXPARAMINFO* info = GetInfo(name);
  if (!info) return ParamListHolder();
  return FromHandle(info->GetHandle(handle_, index));
}

// VXGetHandleById lends the child; the holder needs a reference of its own.
ParamListHolder ParamListHolder::GetHandle(int id) const {
  return FromHandle(VXGetHandleById(handle_, static_cast<std::uint32_t>(id)));
}

const VXDWORDARRAY ParamListHolder::GetInt32Array(const char* name) const {
  return VXGetInt32Array(handle_, name);
}

const VXQWORDARRAY ParamListHolder::GetInt64Array(const char* name) const {
  return VXGetInt64Array(handle_, name);
}

std::uint32_t ParamListHolder::GetStringArray(const char* name, const char** out, unsigned maxItems,
                                              unsigned start) const {
  return VXGetStringArray(handle_, name, out, maxItems, start);
}

std::uint32_t ParamListHolder::GetBinaryArray(const char* name, const BINARYVALUE** out,
                                              unsigned maxItems, unsigned start) const {
  return VXGetBinaryArray(handle_, name, out, maxItems, start);
}

namespace {

// Walks the elements of a handle array from `start`, resolving each id in the
// list; `store` takes the slot number and the (borrowed) child handle.
template <class Store>
std::uint32_t ForEachHandleElement(HVXPARAMLIST list, const VXPARAMINFO* info, unsigned maxItems,
                                   unsigned start, Store store) {
  if (!info || info->GetType() != (PT_ARRAY | PT_PARAMHANDLE) || maxItems == 0) return 0;
  const std::uint32_t count = info->GetArraySize();
  std::uint32_t filled = 0;
  for (std::uint32_t i = start; i < count && filled < maxItems; ++i, ++filled) {
    store(filled, info->GetHandle(list, i));
  }
  return filled;
}

}  // namespace

std::uint32_t ParamListHolder::GetHandleArray(const char* name, ParamListHolder* out,
                                              unsigned maxItems, unsigned start) const {
  // Each slot references its list before letting go of what it held.
  return ForEachHandleElement(handle_, GetInfo(name), maxItems, start,
                              [out](std::uint32_t slot, HVXPARAMLIST child) { out[slot] = child; });
}

std::uint32_t ParamListHolder::GetHandleArray(const char* name, HVXPARAMLIST* out,
                                              unsigned maxItems, unsigned start) const {
  // Raw handles are lent by this list; no reference is added.
  return ForEachHandleElement(handle_, GetInfo(name), maxItems, start,
                              [out](std::uint32_t slot, HVXPARAMLIST child) { out[slot] = child; });
}

// ---------------------------------------------------------------------------
// Setters
// ---------------------------------------------------------------------------

VX_ERROR ParamListHolder::SetString(const char* name, const char* value) {
  return VXSetStringValue(handle_, name, value);
}

VX_ERROR ParamListHolder::SetInt32(const char* name, unsigned value) {
  return VXSetInt32Value(handle_, name, value);
}

VX_ERROR ParamListHolder::SetInt64(const char* name, std::uint64_t value) {
  return VXSetInt64Value(handle_, name, value);
}

VX_ERROR ParamListHolder::SetBinary(const char* name, const void* data, unsigned length) {
  return VXSetBinaryValue(handle_, name, data, length);
}

VX_ERROR ParamListHolder::SetHandle(const char* name, const ParamListHolder& value) {
  return VXSetHandleValue(handle_, name, value.handle_);
}

VX_ERROR ParamListHolder::SetStringArray(const char* name, unsigned count, const char** values) {
  return VXSetStringArray(handle_, name, count, values);
}

VX_ERROR ParamListHolder::SetInt32Array(const char* name, unsigned count, const unsigned* values) {
  return VXSetInt32Array(handle_, name, count, values);
}

VX_ERROR ParamListHolder::SetInt64Array(const char* name, unsigned count,
                                        const std::uint64_t* values) {
  return VXSetInt64Array(handle_, name, count, values);
}

VX_ERROR ParamListHolder::SetBinaryArray(const char* name, unsigned count,
                                         const BINARYITEM* items) {
  return VXSetBinaryItemArray(handle_, name, count, items);
}

VX_ERROR ParamListHolder::SetBinaryArray(const char* name, unsigned count, const void** data,
                                         unsigned* lengths) {
  return VXSetBinaryArray(handle_, name, count, data, lengths);
}

// A holder array has the layout of a handle array, so it goes as it is.
VX_ERROR ParamListHolder::SetHandleArray(const char* name, unsigned count,
                                         const ParamListHolder* values) {
  return VXSetHandleArray(handle_, name, count, reinterpret_cast<const HVXPARAMLIST*>(values));
}

VX_ERROR ParamListHolder::SetHandleArray(const char* name, unsigned count,
                                         const HVXPARAMLIST* values) {
  return VXSetHandleArray(handle_, name, count, values);
}

VX_ERROR ParamListHolder::Remove(const char* name) {
  return VXRemoveValue(handle_, name);
}

VX_ERROR ParamListHolder::RemoveAll() {
  return VXRemoveAllValues(handle_);
}

// ---------------------------------------------------------------------------
// Iteration
// ---------------------------------------------------------------------------

ParamListHolder::param_iterator ParamListHolder::begin() const {
  return param_iterator(this, GetFirst());
}

ParamListHolder::param_iterator ParamListHolder::end() const {
  return param_iterator(this, nullptr);
}

ParamListHolder::param_iterator ParamListHolder::find(const char* name) const {
  return param_iterator(this, GetInfo(name));
}

ParamListHolder::param_iterator ParamListHolder::erase(param_iterator it) {
  if (IsNull(handle_) || it.holder == nullptr || it.holder->handle_ != handle_ ||
      it.info == nullptr) {
    return end();
  }
  // A record pointer dies with the list's next change. If its name no longer
  // finds that very record, the iterator is stale and nothing may go.
  if (GetInfo(it.info->name) != it.info) return end();
  return param_iterator(this, VXRemoveParamByInfo(handle_, it.info));
}

std::uint32_t ParamListHolder::erase(const char* name) {
  if (IsNull(handle_) || !Exists(name)) return 0;
  VXRemoveValue(handle_, name);
  return 1;
}

}  // namespace VX
