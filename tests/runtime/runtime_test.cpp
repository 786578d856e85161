// SPDX-License-Identifier: MIT
// The private heap, the pool of small blocks, reference counts, the object
// counters, the limits record, the version and the texts of return codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "runtime/block_pool.h"
#include "runtime/brief_spin.h"
#include "runtime/latch.h"
#include "runtime/name_key.h"
#include "runtime/object_counters.h"
#include "runtime/printable_name.h"
#include "runtime/private_heap.h"
#include "runtime/process_state.h"
#include "runtime/referenced_ptr.h"
#include "vxbus.h"

namespace vxbus {
namespace {

// Every control byte, the ends of the range included, and nothing else.
TEST(PrintableName, EscapesControlBytesOnlyAndLeavesOtherNamesAsTheyAre) {
  EXPECT_EQ(PrintableName("vm:7001/server \\ \x80\xff~"), "vm:7001/server \\ \x80\xff~");
  EXPECT_EQ(PrintableName(std::string("a\0b\x1f\n\r\x7f\x20", 8)), "a\\x00b\\x1f\\x0a\\x0d\\x7f ");
  EXPECT_EQ(PrintableName(""), "");
}

// Guards the copy of an owned name key: a long name whose copy the heap
// refuses leaves an empty key that says so, not uninitialised bytes.
TEST(PrivateHeap, ANameKeyWhoseCopyIsRefusedIsEmptyAndNotWhole) {
  const std::string longName(300, 'n');
  RefusePrivateBlocksFrom(300);
  VXNameKey refused{longName};
  VXNameKey moved(std::move(refused));
  RefusePrivateBlocksFrom(0);
  EXPECT_FALSE(moved.Whole());
  EXPECT_STREQ(moved.Text(), "");
  VXNameKey granted{longName};
  EXPECT_TRUE(granted.Whole());
  EXPECT_EQ(granted.Text(), longName);
}

// As the heap's realloc: from null it allocates, and a size of 0 gives a
// block that can be used and freed. Blocks cross between the small and the
// large kind as they grow and shrink; each move keeps the bytes, and a freed
// large block that is handed out again serves as a fresh one.
TEST(PrivateHeap, ReallocKeepsTheBytesAcrossTheLargeBlockThresholdAndAtZero) {
  VXFree(nullptr);
  void* zero = VXRealloc(nullptr, 16);
  ASSERT_NE(zero, nullptr);
  zero = VXRealloc(zero, 0);
  ASSERT_NE(zero, nullptr);
  const std::size_t small = 1000, large = 3 * 1024 * 1024 + 5, larger = 9 * 1024 * 1024;
  auto* p = static_cast<unsigned char*>(VXRealloc(zero, small));
  ASSERT_NE(p, nullptr);
  for (std::size_t i = 0; i < small; ++i)
    p[i] = static_cast<unsigned char>(i * 7);
  p = static_cast<unsigned char*>(VXRealloc(p, large));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
  p[large - 1] = 0x5A;
  p = static_cast<unsigned char*>(VXRealloc(p, large + 100));  // room in place
  ASSERT_NE(p, nullptr);
  p = static_cast<unsigned char*>(VXRealloc(p, larger));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p[large - 1], 0x5A);
  p = static_cast<unsigned char*>(VXRealloc(p, small));
  ASSERT_NE(p, nullptr);
  for (std::size_t i = 0; i < small; ++i)
    ASSERT_EQ(p[i], static_cast<unsigned char>(i * 7)) << i;
  VXFree(p);

  for (int round = 0; round < 6; ++round) {
    auto* block = static_cast<unsigned char*>(VXAllocate(large));
    ASSERT_NE(block, nullptr);
    std::memset(block, round, large);
    EXPECT_EQ(block[large / 2], round);
    VXFree(block);
  }
}

struct Block {
  unsigned char* bytes;
  std::size_t size;
};

// Fills every byte a caller may use with a mark of the block's own.
void Mark(const Block& block, unsigned char mark) {
  std::memset(block.bytes, mark, block.size);
}

bool Marked(const Block& block, unsigned char mark) {
  for (std::size_t i = 0; i < block.size; ++i)
    if (block.bytes[i] != mark) return false;
  return true;
}

std::vector<Block> AllocateMarked(std::size_t count, unsigned char mark) {
  std::vector<Block> blocks;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t size = 1 + (i * 37) % (kLargestPooledBlock + 64);
    Block block{static_cast<unsigned char*>(PooledAllocate(size)), size};
    EXPECT_NE(block.bytes, nullptr);
    Mark(block, mark);
    blocks.push_back(block);
  }
  return blocks;
}

// Two threads at once free what another thread made and make blocks that this
// thread frees after they end, as the dispatch thread lets a reader's messages
// go: no block is handed out twice while in use, none loses a byte to another,
// and chains travel both ways through the depot, the one thing threads share.
TEST(BlockPool, BlocksTradedBetweenThreadsServeAgainWithoutOverlap) {
  auto trade = [](std::vector<Block>* theirs, unsigned char theirMark, unsigned char myMark) {
    for (Block& block : *theirs) {
      EXPECT_TRUE(Marked(block, theirMark));
      PooledFree(block.bytes, block.size);
      block.bytes = static_cast<unsigned char*>(PooledAllocate(block.size));
      Mark(block, myMark);
    }
  };
  for (int round = 0; round < 10; ++round) {
    const auto mark = [round](int m) { return static_cast<unsigned char>(round * 4 + m + 1); };
    std::vector<Block> made[2] = {AllocateMarked(500, mark(0)), AllocateMarked(500, mark(1))};
    std::thread a(trade, &made[0], mark(0), mark(2)), b(trade, &made[1], mark(1), mark(3));
    a.join();
    b.join();
    for (int t = 0; t < 2; ++t)
      for (const Block& block : made[t]) {
        EXPECT_TRUE(Marked(block, mark(t + 2)));
        PooledFree(block.bytes, block.size);
      }
  }
}

using MTObjects::MTReferencedPtr;
using MTObjects::ReferenceAccess;

class Probe : public MTObjects::MTReferencedTypeBase {
 public:
  explicit Probe(int* destroyed) : destroyed_(destroyed) {}
  ~Probe() override { ++*destroyed_; }

 protected:
  bool IsObjectValid() const override { return true; }

 private:
  int* destroyed_;
};

// The count starts at 0; a release below 1 leaves the object alive. The
// pointer keeps the count right through self-assignment and moves.
TEST(ReferenceCount, StartsAtZeroOnlyTheLastBalancedReleaseDestroysAndThePointerKeepsIt) {
  int destroyed = 0;
  auto* p = new Probe(&destroyed);
  EXPECT_EQ(ReferenceAccess::Count(p), 0);
  ReferenceAccess::Release(p);
  EXPECT_EQ(ReferenceAccess::Count(p), -1);
  ReferenceAccess::AddRef(p);
  ReferenceAccess::AddRef(p);
  EXPECT_EQ(destroyed, 0);
  ReferenceAccess::Release(p);
  EXPECT_EQ(destroyed, 1);

  MTReferencedPtr<Probe> a(new Probe(&destroyed));
  a = a;
  EXPECT_EQ(ReferenceAccess::Count(a.get()), 1);
  MTReferencedPtr<Probe> c(a.get());
  a = c;  // the same object through another pointer
  EXPECT_EQ(ReferenceAccess::Count(a.get()), 2);
  c = nullptr;
  MTReferencedPtr<Probe> b(std::move(a));
  EXPECT_EQ(a.get(), nullptr);
  EXPECT_EQ(ReferenceAccess::Count(b.get()), 1);
  EXPECT_EQ(destroyed, 1);
  b = MTReferencedPtr<Probe>();
  EXPECT_EQ(destroyed, 2);
}

// One thread counts objects up, another counts each one down after it (the
// hand-off of a message from a reader to the dispatch thread), while a third
// reads. A read that saw an object's end but not its start would wrap below
// zero; at rest the count is exact.
TEST(StripedCounter, ReadsUnderChangeNeverWrapAndAtRestAreExact) {
  constexpr std::uint32_t kObjects = 50000;
  StripedCounter counter;
  std::atomic<std::uint32_t> made{0}, taken{0};
  std::atomic<bool> done{false};
  std::thread maker([&] {
    for (std::uint32_t i = 0; i < kObjects; ++i) {
      while (i - taken.load() >= 8)
        std::this_thread::yield();  // at most 8 in flight
      ++counter;
      made.fetch_add(1);
    }
  });
  std::thread taker([&] {
    for (std::uint32_t i = 0; i < kObjects; ++i) {
      while (made.load() == i)
        std::this_thread::yield();
      --counter;
      taken.fetch_add(1);
    }
    done.store(true);
  });
  std::uint32_t highest = 0;
  while (!done.load())
    highest = std::max(highest, counter.load());
  maker.join();
  taker.join();
  EXPECT_LE(highest, kObjects);
  EXPECT_EQ(counter.load(), 0u);
}

TEST(Limits, AuthBlockOfAtMost256BytesGoesIntoDefaultsAndRecordInForce) {
  unsigned char secret[257];
  std::memset(secret, 0x5A, sizeof secret);
  EXPECT_EQ(VXSetAuthenticationInfo(secret, 257), VX_ERROR_FAILED);
  EXPECT_EQ(g_limits.limits.authBlock[0], 0);
  EXPECT_EQ(VXSetAuthenticationInfo(secret, 256), VX_SUCCESS);
  EXPECT_EQ(g_limits.limits.authBlock[255], 0x5A);
  EXPECT_EQ(g_defaultLimits.limits.authBlock[255], 0x5A);
  EXPECT_EQ(VXSetAuthenticationInfo("abc", 3), VX_SUCCESS);
  EXPECT_EQ(g_limits.limits.authBlock[2], 'c');
  EXPECT_EQ(g_limits.limits.authBlock[3], 0);

  // Refused blocks change nothing; a negative length used to reach the copy
  // as an enormous count.
  EXPECT_EQ(VXSetAuthenticationInfo(secret, -1), VX_ERROR_FAILED);
  EXPECT_EQ(VXSetAuthenticationInfo(secret, INT32_MIN), VX_ERROR_FAILED);
  EXPECT_EQ(VXSetAuthenticationInfo(nullptr, 4), VX_ERROR_FAILED);
  EXPECT_EQ(g_limits.limits.authBlock[0], 'a');
  EXPECT_EQ(g_defaultLimits.limits.authBlock[2], 'c');
  EXPECT_EQ(VXSetAuthenticationInfo(nullptr, 0), VX_SUCCESS);
  EXPECT_EQ(g_defaultLimits.limits.authBlock[0], 0);
}

// Guards the lock around the secret block: a handshake's snapshot taken while
// the secret changes is all of the old secret or all of the new one.
TEST(Limits, SecretChangedDuringAHandshakeIsNeverTorn) {
  unsigned char blocks[2][256];
  std::memset(blocks[0], 'a', 256);
  std::memset(blocks[1], 'b', 256);
  ASSERT_EQ(VXSetAuthenticationInfo(blocks[0], 256), VX_SUCCESS);
  std::atomic<bool> done{false};
  std::atomic<int> writes{0};
  std::thread writer([&] {
    for (int i = 0; !done.load(); ++i, ++writes)
      VXSetAuthenticationInfo(blocks[i % 2], 256);
  });
  int torn = 0;
  // At least 200000 snapshots, with at least 10000 writes among them.
  for (int n = 0; n < 200000 || writes.load() < 10000; ++n) {
    unsigned char seen[256];
    SnapshotSecret(seen);
    if (std::count(seen, seen + 256, seen[0]) != 256 || seen[0] == 0) ++torn;
  }
  done = true;
  writer.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(VXSetAuthenticationInfo(nullptr, 0), VX_SUCCESS);
}

// Guards the waiter's pass through the mutex after it saw the flag while
// spinning: without it the waiter frees the latch while Set still holds its
// mutex, which ThreadSanitizer reports.
TEST(Latch, AWaiterMayDestroyTheLatchAsSoonAsItsWaitReturns) {
  using MTObjects::Latch;
  std::atomic<Latch*> handed{nullptr};
  std::atomic<bool> done{false};
  std::thread setter([&] {
    while (!done.load()) {
      if (Latch* latch = handed.exchange(nullptr))
        latch->Set();
      else
        std::this_thread::yield();
    }
  });
  for (int i = 0; i < 20000; ++i) {
    MTObjects::MTReferencedPtr<Latch> latch(new Latch);
    handed.store(latch.get());
    EXPECT_TRUE(latch->Wait());
  }  // each latch is freed the moment its wait returns
  done = true;
  setter.join();
}

// The header's version is the library's, and both are the three numbers; each
// return code has a text of its own, and any other value the unknown one.
TEST(VersionAndErrorText, HeaderAndLibraryAgreeAndEveryCodeHasItsOwnText) {
  EXPECT_STREQ(VXGetVersion(), VXBUS_VERSION_STRING);
  EXPECT_EQ(std::string(VXGetVersion()), std::to_string(VXBUS_VERSION_MAJOR) + "." +
                                             std::to_string(VXBUS_VERSION_MINOR) + "." +
                                             std::to_string(VXBUS_VERSION_PATCH));
  const std::string unknown = VXErrorText(-2);
  EXPECT_EQ(unknown, VXErrorText(-6));  // not assigned
  EXPECT_EQ(unknown, VXErrorText(12345));
  std::set<std::string> texts;
  for (int code : {VX_SUCCESS, VX_ERROR_FAILED, VX_ERROR_NO_SLOT, VX_ERROR_NO_SIGNAL,
                   VX_ERROR_NO_APPLICATION, VX_ERROR_NAME_IN_USE, VX_ERROR_QUEUE_FULL}) {
    ASSERT_NE(VXErrorText(code), nullptr);
    EXPECT_NE(VXErrorText(code), unknown) << code;
    texts.insert(VXErrorText(code));
  }
  EXPECT_EQ(texts.size(), 7u);
  // -7 arises on a connect (the peer refused or is connected) and on an initialise.
  const std::string nameInUse = VXErrorText(VX_ERROR_NAME_IN_USE);
  for (const char* place : {"connected already", "secret", "initialise"})
    EXPECT_NE(nameInUse.find(place), std::string::npos) << place;
}

// VXBUS_SPIN_US: whole microseconds, 0 switches spinning off, a large value
// is cut to the longest spin, and a text that is not a number keeps the
// default rather than switching spinning off by mistake.
TEST(BriefSpin, TheSpinSettingReadsWholeMicrosecondsWithinItsBounds) {
  using std::chrono::microseconds;
  EXPECT_EQ(ParseSpinSetting("0"), microseconds(0));
  EXPECT_EQ(ParseSpinSetting("120"), microseconds(120));
  EXPECT_EQ(ParseSpinSetting("10000"), kLongestSpin);
  EXPECT_EQ(ParseSpinSetting("99999999999999999999"), kLongestSpin);
  for (const char* text : {"", "-5", "50us", " 7", "off"})
    EXPECT_EQ(ParseSpinSetting(text), kBriefSpin) << text;
  EXPECT_EQ(ParseSpinSetting(nullptr), kBriefSpin);
}

}  // namespace
}  // namespace vxbus
