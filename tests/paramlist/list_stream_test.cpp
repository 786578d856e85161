// SPDX-License-Identifier: MIT
// The stream form of a tree of lists on a channel: wire bytes, the order of
// images and pairs, and damage found on the way in.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "list_test_support.h"
#include "runtime/private_heap.h"
#include "runtime/status.h"
#include "support/memory_channel.h"

namespace vxbus {
namespace {

using testing::Hex;
using testing::ImageHex;
using testing::MemoryChannel;
using testing::ScopedList;
using Bytes = std::vector<unsigned char>;

// Same images, counts and shape, child for child.
void ExpectSameTree(const ParamList* a, const ParamList* b) {
  EXPECT_EQ(Hex(a->Data(), a->Used()), Hex(b->Data(), b->Used()));
  EXPECT_EQ(a->Count(), b->Count());
  ASSERT_EQ(a->ChildCount(), b->ChildCount());
  for (std::uint32_t i = 0; i < a->ChildCount(); ++i)
    ExpectSameTree(a->Child(i), b->Child(i));
}

// The size pair of `l` as it stands between two images.
std::string Pair(const ScopedList& l) {
  const std::uint32_t pair[2] = {l->Used(), l->ChildCount()};
  return Hex(reinterpret_cast<const unsigned char*>(pair), 8);
}

class ListStream : public testing::LeakCheckedTest {
 protected:
  ListStream() : memory_(new MemoryChannel), channel_(memory_) {}

  // Writes `root` as the frame writer does.
  std::int32_t Write(HVXPARAMLIST root) {
    return ListFromHandle(root)->WriteList(channel_.get(), false, 0, 0);
  }
  // Reads a root with the size and child count that a frame header carries,
  // under the default read limit of a channel.
  static constexpr std::uint32_t kReadLimit = 1073741824;
  std::int32_t Read(HVXPARAMLIST into, std::uint32_t size, std::uint32_t childCount) {
    std::uint32_t next[2] = {};
    return ListFromHandle(into)->ReadList(channel_.get(), kReadLimit, size, childCount, false,
                                          &next[0], &next[1]);
  }
  // Why a read of a root with that size and child count failed.
  Status ReadFailure(std::uint32_t size, std::uint32_t childCount) {
    ScopedList into;
    std::uint32_t next[2] = {};
    Status failure;
    EXPECT_EQ(ListFromHandle(into)->ReadList(channel_.get(), kReadLimit, size, childCount, false,
                                             &next[0], &next[1], &failure),
              -1);
    return failure;
  }
  std::int32_t Read(HVXPARAMLIST into, HVXPARAMLIST pairOf) {
    return Read(into, VXGetHandleSize(pairOf), ListFromHandle(pairOf)->ChildCount());
  }
  void Reset() {
    memory_ = new MemoryChannel;
    channel_ = memory_;
  }
  // Writes `root` on a fresh channel, reads it back whole as the same tree,
  // and gives the wire.
  std::string RoundTrip(HVXPARAMLIST root) {
    Reset();
    const std::int32_t written = Write(root);
    const Bytes wire = memory_->Written();
    EXPECT_EQ(static_cast<std::size_t>(written), wire.size());
    ScopedList received;
    EXPECT_EQ(Read(received, root), written);
    EXPECT_EQ(memory_->Queued(), 0u);
    ExpectSameTree(ListFromHandle(root), received.operator->());
    return Hex(wire.data(), wire.size());
  }

  MemoryChannel* memory_;
  ChannelRef channel_;
};

// Both images of the example tree, each record byte for byte.
TEST_F(ListStream, TheExampleTreeGoesOutByteForByte) {
  ScopedList root, sub;
  VXSetInt32Value(root, "id", 7);
  VXSetStringValue(sub, "s", "hi");
  VXSetHandleValue(root, "sub", sub);
  EXPECT_EQ(RoundTrip(root),
            testing::HexPattern("07 69 64 00 00 00 00 02 07 00 00 00"
                                "07 73 75 62 00 00 00 04 00 00 00 00"
                                "08 00 00 00 00 00 00 00 03 73 00 01 68 69 00 00"));
}

TEST_F(ListStream, ImagesGoInPreOrderWithThePairOfTheNextList) {
  ScopedList r, a, b, c;  // a chain R, A, B: no pair behind B
  VXSetInt32Value(b, "b", 2);
  VXSetHandleValue(a, "next", b);
  VXSetHandleValue(r, "next", a);
  EXPECT_EQ(RoundTrip(r), ImageHex(r) + Pair(a) + ImageHex(a) + Pair(b) + ImageHex(b));

  // R has A and B, A has C: the pair of B follows C, A's last child, and
  // reaches R's loop through the out pointers.
  VXRemoveValue(a, "next");
  VXSetStringValue(c, "c", "deep");
  VXSetHandleValue(a, "c", c);
  VXSetHandleValue(r, "b", b);
  EXPECT_EQ(RoundTrip(r),
            ImageHex(r) + Pair(a) + ImageHex(a) + Pair(c) + ImageHex(c) + Pair(b) + ImageHex(b));

  for (int allowed = 0; allowed < 7; ++allowed) {  // any failed write fails the whole
    Reset();
    memory_->FailWritesAfter(allowed);
    EXPECT_LT(Write(r), 0) << "failing write " << allowed;
  }
  Reset();
  ASSERT_GT(Write(r), 0);
  const Bytes wire = memory_->Written();
  Reset();
  memory_->Feed(Bytes(wire.begin(), wire.end() - 1));  // B's image lacks a byte
  ScopedList truncated;
  EXPECT_EQ(Read(truncated, r), -1);
}

TEST_F(ListStream, ListsOfZeroBytesShowOnlyAsTheirPairs) {
  ScopedList r, empty, s, received;
  EXPECT_EQ(Write(r), 0);  // nothing at all behind the frame header
  EXPECT_EQ(Read(received, 0, 0), 0);
  EXPECT_EQ(received->Data(), nullptr);

  VXSetInt32Value(s, "v", 9);
  r->AppendChild(ListRef(s.operator->()));  // children but no image: a peer may send it
  EXPECT_EQ(RoundTrip(r), Pair(s) + ImageHex(s));

  ScopedList parent;
  VXSetHandleValue(parent, "e", empty);
  VXSetHandleValue(parent, "s", s);
  EXPECT_EQ(RoundTrip(parent), ImageHex(parent) + Pair(empty) + Pair(s) + ImageHex(s));
}

TEST_F(ListStream, ARoundTripKeepsTheWholeTree) {
  ScopedList r, n1, n2, n3, received;
  VXSetStringValue(n1, "who", "n1");
  VXSetStringValue(n2, "who", "n2");
  VXSetInt32Value(n3, "who", 3);
  VXSetHandleValue(n2, "inner", n3);
  testing::FillEveryType(r, n1);
  const HVXPARAMLIST arr[] = {n2, VX_INVALID_PARAMLIST, n1};
  VXSetHandleArray(r, "arr", 3, arr);

  RoundTrip(r);
  ASSERT_GT(Write(r), 0);  // once more, to look into what was read
  ASSERT_GT(Read(received, r), 0);
  EXPECT_EQ(received->Count(), 13u);  // counted on the way in: never sent
  EXPECT_EQ(VXGetHandleValue(received, "null"), VX_INVALID_PARAMLIST);
  const _tag_VXDWORDARRAY ids = VXGetHandleArray(received, "arr");
  EXPECT_EQ(ids.data[1], kNullIndex);
  EXPECT_STREQ(VXGetStringValue(VXGetHandleById(received, ids.data[0]), "who"), "n2");
}

TEST_F(ListStream, DamagedImagesFailTheRead) {
  const Bytes images[] = {
      {3, 'a', 0, 0, 1, 0, 0, 0},                                        // type 0
      {3, 'a', 0, 6, 1, 0, 0, 0},                                        // type 6
      {3, 'a', 0, 0x80, 0, 0, 0, 0},                                     // the array flag alone
      {3, 'a', 0, 0x86, 0, 0, 0, 0},                                     // array of type 6
      {3, 'a', 0, 2, 1, 0, 0},                                           // int32 one byte short
      {3, 'a', 0, 2, 1, 0, 0, 0, 3, 'b', 0, 0x82, 1, 0, 0, 0, 5, 0, 0},  // second one short
      {3, 'a', 0, 5, 4, 0, 0, 0, 1, 2, 3},                               // binary one byte short
      {3, 'a', 0, 1, 'h', 'i', 'j', 'k'},                                // string without its NUL
      {7, 'a', 'b', 0},                                   // type byte beyond the image
      {3, 'a', 0, 0x82, 0xff, 0xff, 0xff, 0x3f},          // count beyond the image
      {3, 'a', 0, 0x81, 1, 0, 0, 0, 8, 0, 0, 0, 'x', 0},  // item offset beyond the image
      {3, 'a', 0, 0x85, 1, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff},  // item too long
      {3, 'a', 'b', 2, 1, 0, 0, 0},   // a name with no zero before its type byte
      {0, 2, 0, 0, 0},                // no room for a name at all
      {1, 2, 1, 0, 0, 0},             // the same, with the type byte behind the offset
      {4, 'a', 0, 0, 2, 1, 0, 0, 0},  // a value off its 4-byte alignment
      {3, 'b', 0, 0x85, 1, 0, 0, 0, 1, 0,    0, 0, 0xee,  // a binary item off its alignment
       6, 0,   0, 0,    1, 2, 3, 4, 5, 0xab, 0, 0},
  };
  for (const Bytes& image : images) {
    ScopedList received;
    memory_->Feed(image);
    EXPECT_EQ(Read(received, static_cast<std::uint32_t>(image.size()), 0), -1)
        << Hex(image.data(), image.size());
    EXPECT_EQ(memory_->Queued(), 0u);
  }

  ScopedList r, a, received;  // damage in a nested list fails the root
  VXSetInt32Value(a, "a", 1);
  VXSetHandleValue(r, "a", a);
  ASSERT_GT(Write(r), 0);
  Bytes wire = memory_->Written();
  Reset();
  wire[r->Used() + 8 + 3] = 0x86;  // the type byte of A's only record
  memory_->Feed(wire);
  EXPECT_EQ(Read(received, r), -1);
}

// The stream of a chain: `image` for the root and for each of the `depth`
// lists below it, each with one child but the last.
Bytes Chain(const Bytes& image, std::uint32_t depth) {
  Bytes wire(image);
  for (std::uint32_t i = 0; i < depth; ++i) {
    const unsigned char pair[8] = {
        static_cast<unsigned char>(image.size()), 0, 0, 0, i + 1 < depth, 0, 0, 0};
    wire.insert(wire.end(), pair, pair + 8);
    wire.insert(wire.end(), image.begin(), image.end());
  }
  return wire;
}

// Nesting is bounded before it is recursed on: a stream a million levels deep
// fails to read instead of exhausting the stack.
TEST_F(ListStream, NestingDeeperThanTheLimitFailsTheRead) {
  for (std::uint32_t levels : {VX_MAX_LIST_NESTING, VX_MAX_LIST_NESTING + 1, 1000000u}) {
    Reset();
    ScopedList received;
    memory_->Feed(Chain({}, levels));
    const bool allowed = levels == VX_MAX_LIST_NESTING;
    EXPECT_EQ(Read(received, 0, 1), allowed ? static_cast<std::int32_t>(8 * levels) : -1) << levels;
    EXPECT_TRUE(!allowed || memory_->Queued() == 0) << levels;
  }
}

// Ids that repeat, which only a peer's image can hold, print their list once:
// twenty levels of [0, 0] would otherwise print a million lines.
TEST_F(ListStream, RepeatedChildIdsFromAPeerPrintTheirListOnce) {
  memory_->Feed(Chain({3, 'h', 0, 0x84, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 19));
  ScopedList received;
  ASSERT_GE(Read(received, 16, 1), 0);
  const std::string text = testing::Dump(received, false);
  EXPECT_LT(text.size(), 4096u);
  EXPECT_EQ(text.substr(0, 25), "h=ARRAY\n  [0]=    h=ARRAY");
}

// Sizes that wrap or pass the read limit (with the pair, one word over) are
// refused before the image grows.
TEST_F(ListStream, DeclaredSizeAboveTheReadLimitReservesNothing) {
  const std::uint32_t cases[][2] = {{0xFFFFFFF0u, 0}, {0xFFFFFFFFu, 1}, {kReadLimit, 1}};
  for (const auto& c : cases) {
    ScopedList received;
    EXPECT_EQ(Read(received, c[0], c[1]), -1) << c[0];
    EXPECT_EQ(received->capacity, 0u) << c[0];
  }
}

// The session's end names what broke: each failed read says which bound or
// rule, the heap's refusal, or the channel's own failure.
TEST_F(ListStream, EachFailedReadNamesItsCause) {
  const std::uint32_t tooLarge = kReadLimit + 1;
  const struct {
    Bytes wire;
    std::uint32_t size, childCount;
    Cause cause;
    const char* detail;
  } cases[] = {
      {Chain({}, VX_MAX_LIST_NESTING + 1), 0, 1, Cause::kBadInput, "list nesting deeper than 256"},
      {{}, tooLarge, 0, Cause::kBadInput, "a list larger than MAX_READ_SIZE"},
      {{}, 0xFFFFFFFCu, 1, Cause::kBadInput, "a list size that wraps with its pair"},
      {{3, 'a', 0, 6, 1, 0, 0, 0}, 8, 0, Cause::kBadInput, "a list value of an unknown type"},
      {{3, 'a', 0, 2, 1, 0, 0}, 7, 0, Cause::kBadInput, "a list record that runs past its image"},
      {{3, 'a', 'b', 2, 1, 0, 0, 0}, 8, 0, Cause::kBadInput, "a list record whose name has no end"},
      {{4, 'a', 0, 0, 2, 1, 0, 0, 0}, 9, 0, Cause::kBadInput, "a list value that is not 4-aligned"},
      {{1, 2}, 8, 0, Cause::kSystemError, nullptr},  // the stream ends; it can't tell why
  };
  for (const auto& c : cases) {
    Reset();
    memory_->Feed(c.wire);
    const Status failure = ReadFailure(c.size, c.childCount);
    EXPECT_EQ(failure.cause, c.cause) << StatusText(failure);
    EXPECT_STREQ(failure.detail, c.detail) << StatusText(failure);
  }
  EXPECT_EQ(StatusText(Status::BadInput("list nesting deeper than 256")),
            "peer sent bytes that break the protocol: list nesting deeper than 256");

  // An image the heap refuses; large images skip the pool.
  Reset();
  memory_->Feed(Bytes(4096, 0));
  RefusePrivateBlocksFrom(1024);
  const Status refused = ReadFailure(4096, 0);
  RefusePrivateBlocksFrom(0);
  EXPECT_EQ(refused.cause, Cause::kOutOfMemory);
  EXPECT_EQ(memory_->Queued(), 4096u) << "nothing is read for an image with no room";
}

}  // namespace
}  // namespace vxbus
