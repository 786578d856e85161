// SPDX-License-Identifier: MIT
// Every Set: the whole new record is reserved in one growth of the image, the
// old record of that name goes, header and value are appended, and the record
// counts. Setting an existing name therefore moves it to the end. Room comes
// first, so that a heap that refuses it leaves the list as it was.
#include <cstring>
#include <utility>

#include "paramlist/param_list.h"

namespace vxbus {

namespace {

// A Set removes the old record and grows the image before it reads its
// arguments, so a name or value that points into the same list (a getter's
// result, `info->name`) would be read after its bytes moved. When any argument
// does, the list goes on in a copy of its image for the length of the Set, and
// the old block, which the caller's pointers still read, is freed at the end.
class ArgumentGuard {
 public:
  template <class... Pointers>
  explicit ArgumentGuard(ParamList& list, const Pointers*... arguments) : list_(list) {
    (Watch(arguments), ...);
  }
  ~ArgumentGuard() {
    if (old_ != nullptr) ParamList::FreeImage(old_, oldCapacity_);
  }
  ArgumentGuard(const ArgumentGuard&) = delete;
  ArgumentGuard& operator=(const ArgumentGuard&) = delete;

  // False once a copy was needed and the heap refused it.
  bool Held() const { return !refused_; }

  void Watch(const void* argument) {
    if (old_ != nullptr || refused_ || !list_.Holds(argument)) return;
    unsigned char* copy = ParamList::AllocateImage(list_.capacity);
    if (copy == nullptr) {
      refused_ = true;
      return;
    }
    std::memcpy(copy, list_.data, list_.used);
    old_ = list_.data;
    oldCapacity_ = list_.capacity;
    list_.data = copy;
  }

 private:
  ParamList& list_;
  unsigned char* old_ = nullptr;
  std::uint32_t oldCapacity_ = 0;
  bool refused_ = false;
};

std::uint32_t StringValueSize(const char* text) {
  return text == nullptr ? 4 : Round4(static_cast<std::uint32_t>(std::strlen(text)) + 1);
}

}  // namespace

bool ParamList::BeginRecord(const char* name, unsigned char type, std::uint32_t valueSize) {
  const std::uint32_t nameLength = static_cast<std::uint32_t>(std::strlen(name));
  const std::uint32_t recordLength = HeaderLength(nameLength) + valueSize;
  const VXPARAMINFO* old = Find(name);
  if (old != nullptr && !IsStoredType(old->GetValue()->type)) return false;  // damage
  const std::uint32_t freed = old != nullptr ? old->GetSize() : 0;
  // The need is the same as after the removal, so the image grows exactly as
  // it would; the old record is found again, as the growth may move it.
  if (recordLength > freed) {
    const std::uint32_t at =
        old != nullptr
            ? static_cast<std::uint32_t>(reinterpret_cast<const unsigned char*>(old) - data)
            : 0;
    if (!Reserve(recordLength - freed)) return false;
    if (old != nullptr) old = reinterpret_cast<const VXPARAMINFO*>(data + at);
  }
  Remove(old);
  AppendHeader(name, nameLength, type);
  return true;
}

std::uint32_t ParamList::AppendTable(std::uint32_t count) {
  Append32(count);
  std::uint32_t table = used;
  InsertGap(used, 4 * count);
  return table;
}

bool ParamList::SetString(const char* name, const char* text) {
  ArgumentGuard guard(*this, name, text);
  if (!guard.Held() || !BeginRecord(name, PT_STRING, StringValueSize(text))) return false;
  AppendString(text);
  ++body_.count;
  return true;
}

bool ParamList::SetInt32(const char* name, std::uint32_t value) {
  ArgumentGuard guard(*this, name);
  if (!guard.Held() || !BeginRecord(name, PT_INT32, 4)) return false;
  Append32(value);
  ++body_.count;
  return true;
}

bool ParamList::SetInt64(const char* name, std::uint64_t value) {
  ArgumentGuard guard(*this, name);
  if (!guard.Held() || !BeginRecord(name, PT_INT64, 8)) return false;
  Append64(value);
  ++body_.count;
  return true;
}

bool ParamList::SetBinary(const char* name, const void* bytes, std::uint32_t length) {
  ArgumentGuard guard(*this, name, bytes);
  if (!guard.Held() || !BeginRecord(name, PT_BINARY, 4 + Round4(length))) return false;
  Append32(length);
  AppendBytes(bytes, length);
  ++body_.count;
  return true;
}

bool ParamList::SetHandle(const char* name, const ListRef& list) {
  // Held here because `list` may be an entry of our own children, which the
  // removal of the old record can release or move.
  ListRef keep(list);
  ArgumentGuard guard(*this, name);
  if (keep.IsValid() && !body_.children.MakeRoom(1)) return false;
  if (!guard.Held() || !BeginRecord(name, PT_PARAMHANDLE, 4)) return false;
  if (keep.IsValid()) {
    body_.children.Push(keep);
    Append32(body_.children.Size() - 1);
  } else {
    Append32(kNullIndex);
  }
  ++body_.count;
  return true;
}

bool ParamList::SetStringArray(const char* name, const char* const* texts, std::uint32_t count) {
  ArgumentGuard guard(*this, name, texts);
  std::uint32_t size = 4 + 4 * count;
  for (std::uint32_t i = 0; i < count; ++i) {
    guard.Watch(texts[i]);
    size += StringValueSize(texts[i]);
  }
  if (!guard.Held() || !BeginRecord(name, PT_ARRAY | PT_STRING, size)) return false;
  std::uint32_t table = AppendTable(count);
  std::uint32_t base = used;
  for (std::uint32_t i = 0; i < count; ++i) {
    Store32At(table + 4 * i, used - base);
    AppendString(texts[i]);
  }
  ++body_.count;
  return true;
}

bool ParamList::SetInt32Array(const char* name, const void* values, std::uint32_t count) {
  ArgumentGuard guard(*this, name, values);
  if (!guard.Held() || !BeginRecord(name, PT_ARRAY | PT_INT32, 4 + 4 * count)) return false;
  Append32(count);
  AppendBytes(values, 4 * count);
  ++body_.count;
  return true;
}

bool ParamList::SetInt64Array(const char* name, const void* values, std::uint32_t count) {
  ArgumentGuard guard(*this, name, values);
  if (!guard.Held() || !BeginRecord(name, PT_ARRAY | PT_INT64, 4 + 8 * count)) return false;
  Append32(count);
  AppendBytes(values, 8 * count);
  ++body_.count;
  return true;
}

template <class Item>
bool ParamList::SetBinaryItems(const char* name, std::uint32_t count, Item item) {
  ArgumentGuard guard(*this, name);
  std::uint32_t size = 4 + 4 * count;
  for (std::uint32_t i = 0; i < count; ++i) {
    guard.Watch(item(i).first);
    size += 4 + Round4(item(i).second);
  }
  if (!guard.Held() || !BeginRecord(name, PT_ARRAY | PT_BINARY, size)) return false;
  std::uint32_t table = AppendTable(count);
  std::uint32_t base = used;
  for (std::uint32_t i = 0; i < count; ++i) {
    Store32At(table + 4 * i, used - base);
    auto [data, length] = item(i);
    Append32(length);
    AppendBytes(data, length);
  }
  ++body_.count;
  return true;
}

bool ParamList::SetBinaryArray(const char* name, const BINARYITEM* items, std::uint32_t count) {
  ArgumentGuard guard(*this, items);
  return guard.Held() && SetBinaryItems(name, count, [items](std::uint32_t i) {
           // Copied out first: the record is packed, so no reference may bind to it.
           const void* data = items[i].data;
           std::uint32_t length = items[i].length;
           return std::pair<const void*, std::uint32_t>(data, length);
         });
}

bool ParamList::SetBinaryArray(const char* name, const void* const* bytes,
                               const std::uint32_t* lengths, std::uint32_t count) {
  ArgumentGuard guard(*this, bytes, lengths);
  return guard.Held() && SetBinaryItems(name, count, [bytes, lengths](std::uint32_t i) {
           return std::pair<const void*, std::uint32_t>(bytes[i], lengths[i]);
         });
}

bool ParamList::SetHandleArray(const char* name, const ListRef* lists, std::uint32_t count) {
  ArgumentGuard guard(*this, name);
  std::uint32_t held = 0;
  for (std::uint32_t i = 0; i < count; ++i)
    if (lists[i].IsValid()) ++held;
  if (!body_.children.MakeRoom(held)) return false;
  if (!guard.Held() || !BeginRecord(name, PT_ARRAY | PT_PARAMHANDLE, 4 + 4 * count)) return false;
  std::uint32_t table = AppendTable(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (lists[i].IsValid()) {
      Store32At(table + 4 * i, body_.children.Size());
      body_.children.Push(lists[i]);
    } else {
      Store32At(table + 4 * i, kNullIndex);
    }
  }
  ++body_.count;
  return true;
}

}  // namespace vxbus
