// SPDX-License-Identifier: MIT
// A parameter list: one flat image of records, the count of its records and
// the nested lists it keeps alive.
#ifndef VXBUS_PARAMLIST_PARAM_LIST_H_
#define VXBUS_PARAMLIST_PARAM_LIST_H_

#include <cstddef>
#include <cstdint>

#include "paramlist/child_array.h"
#include "paramlist/list_image.h"
#include "runtime/byte_stream.h"
#include "runtime/referenced_ptr.h"
#include "runtime/status.h"
#include "vxbus.h"

namespace vxbus {

class ParamList;
using ListRef = MTObjects::MTReferencedPtr<ParamList>;

// Child index that refers to no list.
constexpr std::uint32_t kNullIndex = 0xFFFFFFFFu;

// True for a type byte that a stored value can have, the only ones whose
// size GetSize knows; any other is damage.
inline bool IsStoredType(unsigned char type) {
  const unsigned char base = type & static_cast<unsigned char>(~PT_ARRAY);
  return base >= PT_STRING && base <= PT_BINARY;
}

// Stored type bytes of the two kinds of value that hold child indexes.
constexpr unsigned char kTypeHandle = PT_PARAMHANDLE;
constexpr unsigned char kTypeHandleArray = PT_ARRAY | PT_PARAMHANDLE;

struct ListBody {
  std::uint32_t count = 0;
  ParamList* owner = nullptr;
  RefPtrArray<ParamList> children;
};

class ParamList : public MTObjects::MTReferencedTypeBase, public ListImage {
 public:
  ParamList();
  ~ParamList() override;

  // Lists live on the private heap. A refused allocation makes `new` give
  // null instead of throwing, so creation can report it as a null handle.
  static void* operator new(std::size_t size) noexcept;
  static void operator delete(void* pointer, std::size_t size) noexcept;

  std::uint32_t Used() const { return used; }
  const unsigned char* Data() const { return data; }
  std::uint32_t Count() const { return body_.count; }
  std::uint32_t ChildCount() const { return body_.children.Size(); }
  std::uint32_t ChildCapacity() const { return body_.children.Capacity(); }
  // The nested list at position i (i below ChildCount()), with no reference added.
  ParamList* Child(std::uint32_t i) const { return body_.children[i].get(); }
  const ListRef& ChildRef(std::uint32_t i) const { return body_.children[i]; }
  // Adds a reference of this list's own; clone and the reader use it.
  // False, and nothing added, when the heap refuses to grow the array.
  bool AppendChild(const ListRef& child) { return body_.children.Push(child); }

  // Walking. Pointers point into the image and die with its next change.
  const VXPARAMINFO* First() const;
  // Null behind the last record, and at a record that overruns the image or
  // has a type byte no stored value has.
  const VXPARAMINFO* Next(const VXPARAMINFO* record) const;
  const VXPARAMINFO* Find(const char* name) const;

  // Removing; each gives the record that now stands in the removed one's place.
  const VXPARAMINFO* Remove(const VXPARAMINFO* record);
  const VXPARAMINFO* RemoveByName(const char* name);
  // Null, with nothing changed, for a record that is not one of this list's.
  const VXPARAMINFO* RemoveByInfo(const VXPARAMINFO* record);
  // Empties the list and keeps both allocations.
  void Clear();

  // Every setter removes the record of that name and appends the new one.
  // False when the heap refuses the room for it: the list is then as it was.
  bool SetString(const char* name, const char* text);
  bool SetInt32(const char* name, std::uint32_t value);
  bool SetInt64(const char* name, std::uint64_t value);
  bool SetBinary(const char* name, const void* bytes, std::uint32_t length);
  bool SetHandle(const char* name, const ListRef& list);
  bool SetStringArray(const char* name, const char* const* texts, std::uint32_t count);
  bool SetInt32Array(const char* name, const void* values, std::uint32_t count);
  bool SetInt64Array(const char* name, const void* values, std::uint32_t count);
  bool SetBinaryArray(const char* name, const BINARYITEM* items, std::uint32_t count);
  bool SetBinaryArray(const char* name, const void* const* bytes, const std::uint32_t* lengths,
                      std::uint32_t count);
  bool SetHandleArray(const char* name, const ListRef* lists, std::uint32_t count);

  // Counts the records of an image filled by other means, adding to the
  // count. A damaged image gives kBadInput naming the broken rule, with the
  // records before it counted; it never reads outside the used bytes, so it
  // is the check for untrusted images.
  Status Recount();

  // The stream form of a tree of lists on a channel, image after image in
  // pre-order with the size pair of the next list between two images. The
  // reader refuses an image (with its pair) longer than `maxReadSize`, the
  // read limit of the channel, before it reserves room for it.
  std::int32_t WriteList(IByteStream* channel, bool hasNext, std::uint32_t nextSize,
                         std::uint32_t nextChildCount);
  // Gives the bytes read, or -1; `failure` (may be null) gets why: kBadInput
  // with the bound the stream broke, kOutOfMemory, or the channel's failure.
  std::int32_t ReadList(IByteStream* channel, std::uint32_t maxReadSize, std::uint32_t size,
                        std::uint32_t childCount, bool hasNext, std::uint32_t* nextSize,
                        std::uint32_t* nextChildCount, Status* failure = nullptr);

 protected:
  bool IsObjectValid() const override { return true; }

 private:
  // Reserves the whole new record in one growth, removes the old record of
  // `name` and appends the header; false, with nothing changed, when the
  // heap refuses the room.
  bool BeginRecord(const char* name, unsigned char type, std::uint32_t valueSize);
  // Count word, then a gap for the offset or index table; gives the offset of
  // the gap.
  std::uint32_t AppendTable(std::uint32_t count);
  // Both binary-array setters: `item(i)` gives the i-th data pointer and length.
  template <class Item>
  bool SetBinaryItems(const char* name, std::uint32_t count, Item item);
  // Keeps child indexes right when the record at `record` goes.
  void ReleaseChildrenOf(const unsigned char* record);
  template <class Renumber>
  void RenumberChildIndexes(const unsigned char* skip, Renumber renumber);
  // Puts the offset of the record behind the one at `offset` in `*next`,
  // each byte checked against `used` before it is read; kBadInput, with
  // `*next` untouched, for a damaged record.
  Status CheckedNextOffset(std::uint32_t offset, std::uint32_t* next) const;
  Status ReadOntoImage(IByteStream* channel, std::uint32_t maxReadSize, std::uint32_t length);
  // ReadList for a list at nesting level `depth`; refuses levels deeper than
  // VX_MAX_LIST_NESTING, which also bounds the recursion. `*bytesRead` is
  // set on success only.
  Status ReadNested(IByteStream* channel, std::uint32_t maxReadSize, std::uint32_t size,
                    std::uint32_t childCount, bool hasNext, std::uint32_t* nextSize,
                    std::uint32_t* nextChildCount, std::uint32_t depth, std::int32_t* bytesRead);

  ListBody body_;
};

}  // namespace vxbus

#endif  // VXBUS_PARAMLIST_PARAM_LIST_H_
