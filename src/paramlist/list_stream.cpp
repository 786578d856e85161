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
std::int32_t ParamList::ReadOntoImage(IByteStream* channel, std::uint32_t maxReadSize,
                                      std::uint32_t length) {
  if (length > maxReadSize) return -1;
  if (!Reserve(length)) return -1;
  std::int32_t r = channel->Read(data + used, length);
  if (r >= 0) used += length;
  return r;
}

// Each image is read together with the pair behind it in one channel read;
// the pair passes through the image and is taken off again. Called on an
// empty list: bytes are appended and Recount adds to the count.
std::int32_t ParamList::ReadList(IByteStream* channel, std::uint32_t maxReadSize,
                                 std::uint32_t size, std::uint32_t childCount, bool hasNext,
                                 std::uint32_t* nextSize, std::uint32_t* nextChildCount) {
  return ReadNested(channel, maxReadSize, size, childCount, hasNext, nextSize, nextChildCount, 0);
}

std::int32_t ParamList::ReadNested(IByteStream* channel, std::uint32_t maxReadSize,
                                   std::uint32_t size, std::uint32_t childCount, bool hasNext,
                                   std::uint32_t* nextSize, std::uint32_t* nextChildCount,
                                   std::uint32_t depth) {
  if (depth > VX_MAX_LIST_NESTING) return -1;
  const bool pairFollows = childCount > 0 || hasNext;
  if (pairFollows && size > UINT32_MAX - sizeof(SizePair)) return -1;  // would wrap
  if (ReadOntoImage(channel, maxReadSize, pairFollows ? size + 8 : size) < 0) return -1;
  std::int32_t result = static_cast<std::int32_t>(used);

  if (pairFollows) {
    SizePair pair{Load32At(used - 8), Load32At(used - 4)};
    if (childCount > 0) {
      // Children are added as they arrive rather than sized up front, so a
      // child count that the stream does not back costs no memory.
      body_.children.Clear();
      for (std::uint32_t i = 0; i < childCount; ++i) {
        ListRef child(new ParamList);
        if (!child) return -1;
        body_.children.Push(child);
        const bool lastChild = i + 1 == childCount;
        std::int32_t r = lastChild
                             ? child->ReadNested(channel, maxReadSize, pair.size, pair.childCount,
                                                 hasNext, nextSize, nextChildCount, depth + 1)
                             : child->ReadNested(channel, maxReadSize, pair.size, pair.childCount,
                                                 true, &pair.size, &pair.childCount, depth + 1);
        if (r < 0) return -1;
        result += r;
      }
    } else {
      *nextSize = pair.size;
      *nextChildCount = pair.childCount;
    }
    used = used > 8 ? used - 8 : 0;
  }

  // The walk is the only check that the image is whole.
  try {
    Recount();
  } catch (...) {
    return -1;
  }
  return result;
}

}  // namespace vxbus
