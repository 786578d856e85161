// Every Set: the old record of that name goes, the whole new record is
// reserved in one growth of the image, header and value are appended, and the
// record counts. Setting an existing name therefore moves it to the end.
#include <cstring>
#include <utility>

#include "paramlist/fast_holder.h"

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
  explicit ArgumentGuard(FastHolderImpl& list, const Pointers*... arguments) : list_(list) {
    (Watch(arguments), ...);
  }
  ~ArgumentGuard() { FastHolderImpl::FreeImage(old_, oldCapacity_); }
  ArgumentGuard(const ArgumentGuard&) = delete;
  ArgumentGuard& operator=(const ArgumentGuard&) = delete;

  void Watch(const void* argument) {
    if (old_ != nullptr || !list_.Holds(argument)) return;
    unsigned char* copy = FastHolderImpl::AllocateImage(list_.capacity);
    std::memcpy(copy, list_.data, list_.used);
    old_ = list_.data;
    oldCapacity_ = list_.capacity;
    list_.data = copy;
  }

 private:
  FastHolderImpl& list_;
  unsigned char* old_ = nullptr;
  std::uint32_t oldCapacity_ = 0;
};

std::uint32_t StringValueSize(const char* text) {
  return text == nullptr ? 4 : Round4(static_cast<std::uint32_t>(std::strlen(text)) + 1);
}

}  // namespace

void FastHolderImpl::BeginRecord(const char* name, unsigned char type, std::uint32_t valueSize) {
  Remove(Find(name));
  std::uint32_t nameLength = static_cast<std::uint32_t>(std::strlen(name));
  Reserve(HeaderLength(nameLength) + valueSize);
  AppendHeader(name, nameLength, type);
}

std::uint32_t FastHolderImpl::AppendTable(std::uint32_t count) {
  Append32(count);
  std::uint32_t table = used;
  InsertGap(used, 4 * count);
  return table;
}

void FastHolderImpl::SetString(const char* name, const char* text) {
  ArgumentGuard guard(*this, name, text);
  BeginRecord(name, PT_STRING, StringValueSize(text));
  AppendString(text);
  ++body_.count;
}

void FastHolderImpl::SetInt32(const char* name, std::uint32_t value) {
  ArgumentGuard guard(*this, name);
  BeginRecord(name, PT_INT32, 4);
  Append32(value);
  ++body_.count;
}

void FastHolderImpl::SetInt64(const char* name, std::uint64_t value) {
  ArgumentGuard guard(*this, name);
  BeginRecord(name, PT_INT64, 8);
  Append64(value);
  ++body_.count;
}

void FastHolderImpl::SetBinary(const char* name, const void* bytes, std::uint32_t length) {
  ArgumentGuard guard(*this, name, bytes);
  BeginRecord(name, PT_BINARY, 4 + Round4(length));
  Append32(length);
  AppendBytes(bytes, length);
  ++body_.count;
}

void FastHolderImpl::SetHandle(const char* name, const ListRef& list) {
  // Held here because `list` may be an entry of our own children, which the
  // removal of the old record can release or move.
  ListRef keep(list);
  ArgumentGuard guard(*this, name);
  BeginRecord(name, PT_PARAMHANDLE, 4);
  if (keep.IsValid()) {
    body_.children.Push(keep);
    Append32(body_.children.Size() - 1);
  } else {
    Append32(kNullIndex);
  }
  ++body_.count;
}

void FastHolderImpl::SetStringArray(const char* name, const char* const* texts,
                                    std::uint32_t count) {
  ArgumentGuard guard(*this, name, texts);
  std::uint32_t size = 4 + 4 * count;
  for (std::uint32_t i = 0; i < count; ++i) {
    guard.Watch(texts[i]);
    size += StringValueSize(texts[i]);
  }
  BeginRecord(name, PT_ARRAY | PT_STRING, size);
  std::uint32_t table = AppendTable(count);
  std::uint32_t base = used;
  for (std::uint32_t i = 0; i < count; ++i) {
    Store32At(table + 4 * i, used - base);
    AppendString(texts[i]);
  }
  ++body_.count;
}

void FastHolderImpl::SetInt32Array(const char* name, const void* values, std::uint32_t count) {
  ArgumentGuard guard(*this, name, values);
  BeginRecord(name, PT_ARRAY | PT_INT32, 4 + 4 * count);
  Append32(count);
  AppendBytes(values, 4 * count);
  ++body_.count;
}

void FastHolderImpl::SetInt64Array(const char* name, const void* values, std::uint32_t count) {
  ArgumentGuard guard(*this, name, values);
  BeginRecord(name, PT_ARRAY | PT_INT64, 4 + 8 * count);
  Append32(count);
  AppendBytes(values, 8 * count);
  ++body_.count;
}

template <class Item>
void FastHolderImpl::SetBinaryItems(const char* name, std::uint32_t count, Item item) {
  ArgumentGuard guard(*this, name);
  std::uint32_t size = 4 + 4 * count;
  for (std::uint32_t i = 0; i < count; ++i) {
    guard.Watch(item(i).first);
    size += 4 + Round4(item(i).second);
  }
  BeginRecord(name, PT_ARRAY | PT_BINARY, size);
  std::uint32_t table = AppendTable(count);
  std::uint32_t base = used;
  for (std::uint32_t i = 0; i < count; ++i) {
    Store32At(table + 4 * i, used - base);
    auto [data, length] = item(i);
    Append32(length);
    AppendBytes(data, length);
  }
  ++body_.count;
}

void FastHolderImpl::SetBinaryArray(const char* name, const _tag_BINARYITEM* items,
                                    std::uint32_t count) {
  ArgumentGuard guard(*this, items);
  SetBinaryItems(name, count, [items](std::uint32_t i) {
    // Copied out first: the record is packed, so no reference may bind to it.
    const void* data = items[i].data;
    std::uint32_t length = items[i].length;
    return std::pair<const void*, std::uint32_t>(data, length);
  });
}

void FastHolderImpl::SetBinaryArray(const char* name, const void* const* bytes,
                                    const std::uint32_t* lengths, std::uint32_t count) {
  ArgumentGuard guard(*this, bytes, lengths);
  SetBinaryItems(name, count, [bytes, lengths](std::uint32_t i) {
    return std::pair<const void*, std::uint32_t>(bytes[i], lengths[i]);
  });
}

void FastHolderImpl::SetHandleArray(const char* name, const ListRef* lists, std::uint32_t count) {
  ArgumentGuard guard(*this, name);
  BeginRecord(name, PT_ARRAY | PT_PARAMHANDLE, 4 + 4 * count);
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
}

}  // namespace vxbus
