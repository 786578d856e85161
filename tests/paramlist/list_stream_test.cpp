// The stream form of a tree of lists on a channel: wire bytes, the order of
// images and pairs, damage found on the way in, and failures of the channel.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "image_pattern.h"
#include "list_test_support.h"
#include "paramlist/handle.h"
#include "support/memory_channel.h"

namespace vxbus {
namespace {

using testing::BytesMatch;
using testing::MemoryChannel;
using testing::ScopedList;

using Bytes = std::vector<unsigned char>;

class ListStream : public testing::LeakCheckedTest {
 protected:
  ListStream() : memory_(new MemoryChannel), channel_(memory_) {}

  // Writes `root` as the frame writer does and gives its pair.
  std::int32_t Write(HVXPARAMLIST root) {
    return ListFromHandle(root)->WriteList(channel_, false, 0, 0);
  }
  // Reads a root with the pair that a frame header would carry.
  std::int32_t Read(HVXPARAMLIST into, std::uint32_t size, std::uint32_t childCount) {
    std::uint32_t ignored[2] = {0xdead, 0xbeef};
    return ListFromHandle(into)->ReadList(channel_, size, childCount, false, &ignored[0],
                                          &ignored[1]);
  }
  std::int32_t Read(HVXPARAMLIST into, HVXPARAMLIST pairOf) {
    return Read(into, VXGetHandleSize(pairOf), ListFromHandle(pairOf)->ChildCount());
  }
  std::string Wire() {
    Bytes w = memory_->Written();
    return testing::Hex(w.data(), w.size());
  }

  MemoryChannel* memory_;
  ChannelRef channel_;
};

std::string Pair(std::uint32_t size, std::uint32_t count) {
  unsigned char b[8];
  std::memcpy(b, &size, 4);
  std::memcpy(b + 4, &count, 4);
  return testing::Hex(b, 8);
}

// Both trees have the same images and the same shape, child for child.
void ExpectSameTree(const FastHolderImpl* a, const FastHolderImpl* b) {
  ASSERT_EQ(a->Used(), b->Used());
  if (a->Used() != 0) {
    EXPECT_EQ(std::memcmp(a->Data(), b->Data(), a->Used()), 0);
  }
  EXPECT_EQ(a->Count(), b->Count());
  ASSERT_EQ(a->ChildCount(), b->ChildCount());
  for (std::uint32_t i = 0; i < a->ChildCount(); ++i)
    ExpectSameTree(a->Child(i), b->Child(i));
}

TEST_F(ListStream, WorkedExampleOnTheWire) {
  ScopedList root;
  ScopedList sub;
  VXSetInt32Value(root, "id", 7);
  VXSetStringValue(sub, "s", "hi");
  VXSetHandleValue(root, "sub", sub);
  EXPECT_EQ(VXGetHandleSize(root), 24u);
  EXPECT_EQ(root->ChildCount(), 1u);

  EXPECT_EQ(Write(root), 40);
  Bytes wire = memory_->Written();
  EXPECT_TRUE(BytesMatch(wire.data(), wire.size(),
                         "07 69 64 00 00 00 00 02 07 00 00 00"
                         "07 73 75 62 00 00 00 04 00 00 00 00"
                         "08 00 00 00 00 00 00 00"
                         "03 73 00 01 68 69 00 xx"));

  ScopedList received;
  EXPECT_EQ(Read(received, 24, 1), 40);  // root image and pair, then the child's image
  EXPECT_EQ(memory_->Queued(), 0u);
  EXPECT_EQ(memory_->Reads(), 2);  // one read per list
  EXPECT_EQ(VXGetInt32Value(received, "id"), 7u);
  HVXPARAMLIST child = VXGetHandleValue(received, "sub");
  EXPECT_STREQ(VXGetStringValue(child, "s"), "hi");
  VXCloseHandle(child);
  ExpectSameTree(ListFromHandle(root), ListFromHandle(received));
}

TEST_F(ListStream, ChainSendsNoPairBehindTheLastImage) {
  ScopedList r;
  ScopedList a;
  ScopedList b;
  VXSetInt32Value(b, "b", 2);
  VXSetHandleValue(a, "next", b);
  VXSetHandleValue(r, "next", a);
  ASSERT_GT(Write(r), 0);
  std::string expected = testing::Hex(r->Data(), r->Used()) + Pair(a->Used(), 1) +
                         testing::Hex(a->Data(), a->Used()) + Pair(b->Used(), 0) +
                         testing::Hex(b->Data(), b->Used());
  EXPECT_EQ(Wire(), expected);

  ScopedList received;
  EXPECT_GE(Read(received, r), 0);
  EXPECT_EQ(memory_->Reads(), 3);
  ExpectSameTree(r.operator->(), received.operator->());
}

// R has children A and B, and A has C. C is A's last child, so the pair of B
// is read behind C's image and reaches R's loop through the out pointers.
TEST_F(ListStream, DeepLastChildPassesTheSiblingsPairUp) {
  ScopedList r, a, b, c;
  VXSetStringValue(c, "c", "deep");
  VXSetHandleValue(a, "c", c);
  VXSetInt32Value(a, "a", 1);
  VXSetInt64Value(b, "b", 2);
  VXSetHandleValue(r, "a", a);
  VXSetHandleValue(r, "b", b);
  ASSERT_GT(Write(r), 0);
  std::string expected = testing::Hex(r->Data(), r->Used()) + Pair(a->Used(), 1) +
                         testing::Hex(a->Data(), a->Used()) + Pair(c->Used(), 0) +
                         testing::Hex(c->Data(), c->Used()) + Pair(b->Used(), 0) +
                         testing::Hex(b->Data(), b->Used());
  EXPECT_EQ(Wire(), expected);

  ScopedList received;
  EXPECT_GE(Read(received, r), 0);
  ExpectSameTree(r.operator->(), received.operator->());
  EXPECT_EQ(memory_->Queued(), 0u);
}

TEST_F(ListStream, EmptyRootSendsNothing) {
  ScopedList root;
  EXPECT_EQ(Write(root), 0);
  EXPECT_TRUE(memory_->Written().empty());
  ScopedList received;
  EXPECT_EQ(Read(received, 0, 0), 0);
  EXPECT_EQ(received->Count(), 0u);
  EXPECT_EQ(received->Used(), 0u);
  EXPECT_EQ(received->Data(), nullptr);
}

TEST_F(ListStream, EmptyChildShowsOnlyAsItsPair) {
  ScopedList r, empty, s;
  VXSetInt32Value(s, "v", 9);
  VXSetHandleValue(r, "e", empty);
  VXSetHandleValue(r, "s", s);
  ASSERT_GT(Write(r), 0);
  EXPECT_EQ(Wire(), testing::Hex(r->Data(), r->Used()) + Pair(0, 0) + Pair(8, 0) +
                        testing::Hex(s->Data(), s->Used()));
  ScopedList received;
  EXPECT_GE(Read(received, r), 0);
  ExpectSameTree(r.operator->(), received.operator->());
}

// A list with children and no records cannot be built by the setters, but a
// peer may send one: the stream then starts with the pair of the first child.
TEST_F(ListStream, RootWithChildrenButNoImage) {
  ScopedList r, child;
  VXSetInt32Value(child, "v", 1);
  r->AppendChild(ListRef(child.operator->()));
  ASSERT_EQ(Write(r), 16);
  EXPECT_EQ(Wire(), Pair(8, 0) + testing::Hex(child->Data(), child->Used()));
  ScopedList received;
  EXPECT_EQ(Read(received, 0, 1), 16);
  EXPECT_EQ(received->Used(), 0u);
  EXPECT_EQ(received->Count(), 0u);
  ASSERT_EQ(received->ChildCount(), 1u);
  EXPECT_EQ(VXGetInt32Value(HandleFromList(received->Child(0)), "v"), 1u);
}

TEST_F(ListStream, NullIndexSurvivesWithoutAListInTheStream) {
  ScopedList r, x;
  VXSetHandleValue(r, "none", VX_INVALID_PARAMLIST);
  const HVXPARAMLIST arr[] = {VX_INVALID_PARAMLIST, x};
  VXSetHandleArray(r, "arr", 2, arr);
  ASSERT_GT(Write(r), 0);
  ScopedList received;
  EXPECT_GE(Read(received, r), 0);
  ExpectSameTree(r.operator->(), received.operator->());
  EXPECT_EQ(VXGetHandleValue(received, "none"), VX_INVALID_PARAMLIST);
  _tag_VXDWORDARRAY ids = VXGetHandleArray(received, "arr");
  ASSERT_EQ(std::uint32_t{ids.count}, 2u);
  EXPECT_EQ(ids.data[0], kNullIndex);
  EXPECT_EQ(ids.data[1], 0u);
}

TEST_F(ListStream, RoundTripKeepsImagesOrderAndCount) {
  ScopedList r, n1, n2, n3;
  const char* texts[] = {"x", nullptr, "zzzzz"};
  const std::uint32_t dwords[] = {1, 2, 3};
  const std::uint64_t qwords[] = {~0ull};
  const unsigned char bytes[] = {1, 2, 3, 4, 5, 6};
  const _tag_BINARYITEM items[] = {{6, bytes}, {0, nullptr}};
  VXSetStringValue(n1, "who", "n1");
  VXSetStringValue(n2, "who", "n2");
  VXSetInt32Value(n3, "who", 3);
  VXSetHandleValue(n2, "inner", n3);
  VXSetStringValue(r, "s", "text");
  VXSetHandleValue(r, "second", n2);
  VXSetInt32Value(r, "i", 1);
  const HVXPARAMLIST arr[] = {n1, n2};
  VXSetHandleArray(r, "arr", 2, arr);
  VXSetInt64Value(r, "q", 1ull << 40);
  VXSetBinaryValue(r, "b", bytes, 5);
  VXSetStringArray(r, "sa", 3, texts);
  VXSetInt32Array(r, "ia", 3, dwords);
  VXSetInt64Array(r, "qa", 1, qwords);
  VXSetBinaryItemArray(r, "ba", 2, items);
  VXSetStringValue(r, "", "empty name");

  const std::int32_t written = Write(r);
  ASSERT_GT(written, 0);
  EXPECT_EQ(static_cast<std::size_t>(written), memory_->Written().size());
  ScopedList received;
  EXPECT_GE(Read(received, r), 0);
  EXPECT_EQ(memory_->Queued(), 0u);
  EXPECT_EQ(received->Count(), 11u);
  ExpectSameTree(r.operator->(), received.operator->());
  // Children keep their positions: n2, n1, n2 again.
  HVXPARAMLIST second = VXGetHandleValue(received, "second");
  EXPECT_STREQ(VXGetStringValue(second, "who"), "n2");
  EXPECT_EQ(VXGetInt32Value(VXGetHandleById(second, 0), "who"), 3u);
  VXCloseHandle(second);
  EXPECT_STREQ(VXGetStringValue(VXGetHandleById(received, 1), "who"), "n1");
}

TEST_F(ListStream, WriteFailureAnywhereInTheTreeIsNegative) {
  ScopedList r, a, b, c;
  VXSetInt32Value(c, "c", 3);
  VXSetHandleValue(a, "c", c);
  VXSetInt32Value(b, "b", 2);
  VXSetHandleValue(r, "a", a);
  VXSetHandleValue(r, "b", b);
  // r, pair a, a, pair c, c, pair b, b
  const int writes = 7;
  ASSERT_GT(Write(r), 0);
  for (int allowed = 0; allowed < writes; ++allowed) {
    memory_->FailWritesAfter(allowed);
    EXPECT_LT(Write(r), 0) << "failing write " << allowed;
  }
}

TEST_F(ListStream, WriteFailureOfThePairBehindALeaf) {
  ScopedList leaf;
  VXSetInt32Value(leaf, "v", 1);
  memory_->FailWritesAfter(1);
  EXPECT_EQ(leaf->WriteList(channel_, true, 8, 0), -1);
  memory_->FailWritesAfter(-1);
  EXPECT_EQ(leaf->WriteList(channel_, true, 8, 0), 16);
}

TEST_F(ListStream, TruncatedStreamFailsAndKeepsWhatWasRead) {
  ScopedList r, a, b;
  VXSetInt32Value(a, "a", 1);
  VXSetInt32Value(b, "b", 2);
  VXSetHandleValue(r, "a", a);
  VXSetHandleValue(r, "b", b);
  ASSERT_GT(Write(r), 0);
  Bytes wire = memory_->Written();
  ScopedList drain;
  ASSERT_GE(Read(drain, r), 0);

  memory_->Feed(Bytes(wire.begin(), wire.end() - 1));  // B's image lacks a byte
  ScopedList received;
  EXPECT_EQ(Read(received, r), -1);
  ASSERT_GE(received->ChildCount(), 1u);
  EXPECT_EQ(VXGetInt32Value(HandleFromList(received->Child(0)), "a"), 1u);
}

TEST_F(ListStream, SizeThatWouldWrapIsRefused) {
  ScopedList received;
  EXPECT_EQ(Read(received, 0xFFFFFFFFu, 1), -1);
  EXPECT_EQ(received->Used(), 0u);
}

TEST_F(ListStream, DamagedImagesFailTheRead) {
  const std::vector<Bytes> images = {
      {3, 'a', 0, 0, 1, 0, 0, 0},                  // type 0
      {3, 'a', 0, 6, 1, 0, 0, 0},                  // type 6
      {3, 'a', 0, 0x80, 0, 0, 0, 0},               // the array flag alone
      {3, 'a', 0, 0x86, 0, 0, 0, 0},               // array of type 6
      {3, 'a', 0, 2, 1, 0, 0},                     // int32 one byte short
      {3, 'a', 0, 5, 4, 0, 0, 0, 1, 2, 3},         // binary one byte short
      {3, 'a', 0, 2, 1, 0, 0, 0, 3, 'b', 0, 0x82,  // second record one byte short
       1, 0, 0, 0, 5, 0, 0},
  };
  for (const Bytes& image : images) {
    ScopedList received;
    memory_->Feed(image);
    EXPECT_EQ(Read(received, static_cast<std::uint32_t>(image.size()), 0), -1)
        << testing::Hex(image.data(), image.size());
    EXPECT_EQ(memory_->Queued(), 0u);
  }
}

TEST_F(ListStream, DamageInANestedListFailsTheRoot) {
  ScopedList r, a;
  VXSetInt32Value(a, "a", 1);
  VXSetHandleValue(r, "a", a);
  ASSERT_GT(Write(r), 0);
  Bytes wire = memory_->Written();
  ScopedList drain;
  ASSERT_GE(Read(drain, r), 0);

  wire[r->Used() + 8 + 3] = 0x86;  // the type byte of A's only record
  memory_->Feed(wire);
  ScopedList received;
  EXPECT_EQ(Read(received, r), -1);
}

TEST_F(ListStream, RecordEndingExactlyAtTheImageEndIsWhole) {
  const Bytes image = {3, 'a', 0, 2, 1, 0, 0, 0, 7, 'b', 'c', 0,
                       0, 0,   0, 3, 1, 0, 0, 0, 0, 0,   0,   0};
  memory_->Feed(image);
  ScopedList received;
  EXPECT_EQ(Read(received, static_cast<std::uint32_t>(image.size()), 0), 24);
  EXPECT_EQ(received->Count(), 2u);
  EXPECT_EQ(VXGetInt64Value(received, "bc"), 1u);
}

TEST_F(ListStream, OutOfRangeChildIdIsReadAndGivesANullHandle) {
  const Bytes image = {3, 'h', 0, 4, 5, 0, 0, 0};
  memory_->Feed(image);
  ScopedList received;
  EXPECT_EQ(Read(received, 8, 0), 8);
  EXPECT_EQ(VXGetHandleValue(received, "h"), VX_INVALID_PARAMLIST);
  VXRemoveValue(received, "h");  // and removing it touches no child
  EXPECT_EQ(received->Count(), 0u);
}

}  // namespace
}  // namespace vxbus
