// SPDX-License-Identifier: MIT
// The stream form of a tree of lists: images in pre-order, and between two
// images the pair (used size, child count) of the second. The root's own pair
// travels in the frame header.
#include <cstdint>

#include "paramlist/param_list.h"

namespace vxbus {

namespace {

struct SizePair {
  std::uint32_t size;
  std::uint32_t childCount;
};
static_assert(sizeof(SizePair) == 8, "a pair is two words on the wire");

SizePair PairOf(const ParamList& list) {
  return SizePair{list.Used(), list.ChildCount()};
}

// Why the stream failed, as far as it can tell.
Status ChannelFailure(const IByteStream& channel) {
  const Status failure = channel.FirstFailure();
  return failure.ok() ? Status::Of(Cause::kSystemError) : failure;
}

}  // namespace

// The duty to write the pair of whatever follows this subtree is handed down
// the last branch, so each image is followed by exactly one pair unless it
// ends the stream.
std::int32_t ParamList::WriteList(IByteStream* channel, bool hasNext, std::uint32_t nextSize,
                                  std::uint32_t nextChildCount) {
  std::int32_t total = channel->Write(data, used);
  if (body_.children.Empty()) {
    if (!hasNext || total < 0) return total;
    SizePair next{nextSize, nextChildCount};
    if (channel->Write(&next, sizeof next) < 0) return -1;
    return total + static_cast<std::int32_t>(sizeof next);
  }
  if (total < 0) return total;

  RefPtrArray<ParamList>& children = body_.children;
  const std::uint32_t last = children.Size() - 1;
  SizePair first = PairOf(*children[0]);
  if (channel->Write(&first, sizeof first) < 0) return -1;
  total += static_cast<std::int32_t>(sizeof first);
  for (std::uint32_t i = 0; i < last; ++i) {
    SizePair following = PairOf(*children[i + 1]);
    std::int32_t r = children[i]->WriteList(channel, true, following.size, following.childCount);
    if (r < 0) return -1;
    total += r;
  }
  std::int32_t r = children[last]->WriteList(channel, hasNext, nextSize, nextChildCount);
  if (r < 0) return -1;
  return total + r;
}

// Grows the image to exactly the need and reads behind `used`. On failure
// `used` stays, the larger allocation too. A length that the channel would
// refuse is refused before anything is reserved for it.
Status ParamList::ReadOntoImage(IByteStream* channel, std::uint32_t maxReadSize,
                                std::uint32_t length) {
  if (length > maxReadSize) return Status::BadInput("a list larger than MAX_READ_SIZE");
  if (!Reserve(length)) return Status::OutOfMemory();
  if (channel->Read(data + used, length) < 0) return ChannelFailure(*channel);
  used += length;
  return Status::Ok();
}

// Each image is read together with the pair behind it in one channel read;
// the pair passes through the image and is taken off again. Called on an
// empty list: bytes are appended and Recount adds to the count.
std::int32_t ParamList::ReadList(IByteStream* channel, std::uint32_t maxReadSize,
                                 std::uint32_t size, std::uint32_t childCount, bool hasNext,
                                 std::uint32_t* nextSize, std::uint32_t* nextChildCount,
                                 Status* failure) {
  std::int32_t bytesRead = 0;
  const Status read = ReadNested(channel, maxReadSize, size, childCount, hasNext, nextSize,
                                 nextChildCount, 0, &bytesRead);
  if (failure != nullptr) *failure = read;
  return read.ok() ? bytesRead : -1;
}

Status ParamList::ReadNested(IByteStream* channel, std::uint32_t maxReadSize, std::uint32_t size,
                             std::uint32_t childCount, bool hasNext, std::uint32_t* nextSize,
                             std::uint32_t* nextChildCount, std::uint32_t depth,
                             std::int32_t* bytesRead) {
  static_assert(VX_MAX_LIST_NESTING == 256, "the text below names the bound");
  if (depth > VX_MAX_LIST_NESTING) return Status::BadInput("list nesting deeper than 256");
  const bool pairFollows = childCount > 0 || hasNext;
  if (pairFollows && size > UINT32_MAX - sizeof(SizePair))
    return Status::BadInput("a list size that wraps with its pair");
  const Status imageRead = ReadOntoImage(channel, maxReadSize, pairFollows ? size + 8 : size);
  if (!imageRead.ok()) return imageRead;
  std::int32_t result = static_cast<std::int32_t>(used);

  if (pairFollows) {
    // The read above put at least the pair's eight bytes behind `used`.
    SizePair pair{0, 0};
    Load32At(used - 8, &pair.size);
    Load32At(used - 4, &pair.childCount);
    if (childCount > 0) {
      // Children are added as they arrive rather than sized up front, so a
      // child count that the stream does not back costs no memory.
      body_.children.Clear();
      for (std::uint32_t i = 0; i < childCount; ++i) {
        ListRef child(new ParamList);
        if (!child || !body_.children.Push(child)) return Status::OutOfMemory();
        const bool lastChild = i + 1 == childCount;
        std::int32_t childBytes = 0;
        const Status childRead =
            lastChild ? child->ReadNested(channel, maxReadSize, pair.size, pair.childCount, hasNext,
                                          nextSize, nextChildCount, depth + 1, &childBytes)
                      : child->ReadNested(channel, maxReadSize, pair.size, pair.childCount, true,
                                          &pair.size, &pair.childCount, depth + 1, &childBytes);
        if (!childRead.ok()) return childRead;
        result += childBytes;
      }
    } else {
      *nextSize = pair.size;
      *nextChildCount = pair.childCount;
    }
    used = used > 8 ? used - 8 : 0;
  }

  // The walk is the only check that the image is whole.
  const Status whole = Recount();
  if (!whole.ok()) return whole;
  *bytesRead = result;
  return Status::Ok();
}

}  // namespace vxbus
