// SPDX-License-Identifier: MIT
// The texts of the handle printer, byte for byte.
#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "list_test_support.h"

namespace vxbus {
namespace {

using testing::Dump;
using testing::ScopedList;

class HandlePrinter : public testing::LeakCheckedTest {};

std::string Framed(HVXPARAMLIST list, const std::string& body) {
  std::ostringstream head;
  head << "=====[" << list.value << "]\n";
  return head.str() + body + std::string(33, '=') + "\n";
}

std::string ToBuffer(HVXPARAMLIST list, bool printTypes, std::uint32_t size = 1 << 16) {
  std::vector<char> buffer(size, 'X');
  PrintHandleInfoToBuffer(list, printTypes, buffer.data(), size);
  return std::string(buffer.data());
}

TEST_F(HandlePrinter, TheExamplePrintsByteForByteInEitherMode) {
  ScopedList list, sub;
  const unsigned char bytes[] = {0x0A, 0xFF};
  VXSetStringValue(sub, "s", "hi");
  VXSetInt32Value(list, "id", 7);
  VXSetBinaryValue(list, "data", bytes, 2);
  VXSetHandleValue(list, "sub", sub);
  const std::string typed = Framed(list,
                                   "id[PT_INT32]=7\ndata[PT_BINARY]= aff\n"
                                   "sub[PT_PARAMHANDLE]=\n  s[PT_STRING]=hi\n");
  EXPECT_EQ(ToBuffer(list, true), typed);
  EXPECT_EQ(ToBuffer(list, false), Framed(list, "id=7\ndata= aff\nsub=\n  s=hi\n"));

  // The buffer is always terminated and cut silently.
  const std::uint32_t n = static_cast<std::uint32_t>(typed.size());
  EXPECT_EQ(ToBuffer(list, true, 1), "");
  EXPECT_EQ(ToBuffer(list, true, n + 1), typed);
  EXPECT_EQ(ToBuffer(list, true, n), typed.substr(0, n - 1));
}

TEST_F(HandlePrinter, UnusualValuesPrintByteForByte) {
  ScopedList list, one;
  EXPECT_EQ(ToBuffer(list, true), Framed(list, ""));
  VXSetHandleValue(list, "self", list);  // printed once, not until the stack ends
  EXPECT_EQ(ToBuffer(list, false), Framed(list, "self=\n"));
  list->RemoveByName("self");
  VXSetBinaryValue(list, "none", nullptr, 0);
  VXSetStringValue(list, "empty", nullptr);
  VXSetHandleValue(list, "nothing", VX_INVALID_PARAMLIST);
  const char* texts[] = {"first", "second"};
  VXSetStringArray(list, "n", 2, texts);
  VXSetInt32Value(one, "a", 1);
  VXSetInt32Value(one, "b", 2);
  const HVXPARAMLIST items[] = {one, VX_INVALID_PARAMLIST};
  VXSetHandleArray(list, "h", 2, items);
  EXPECT_EQ(Dump(list, false),
            "none=\nempty=\nnothing=\n"
            "n=ARRAY\n  [0]=first\n\n  [1]=second\n\n"
            "h=ARRAY\n  [0]=    a=1\n    b=2\n\n  [1]=\n");
}

// Kept: the base stays hexadecimal after a binary array's first byte, until a
// binary value or the next head line sets it back.
TEST_F(HandlePrinter, HexadecimalCarriesOverAfterABinaryArray) {
  ScopedList list;
  const unsigned char bytes[] = {0x0A, 0xAB, 0x01};
  const _tag_BINARYITEM items[] = {{0, bytes}, {1, bytes}, {2, bytes + 1}};
  const std::uint32_t later[] = {255, 16};
  VXSetBinaryItemArray(list, "bin", 3, items);
  VXSetInt32Value(list, "n", 255);
  VXSetInt32Array(list, "later", 2, later);
  VXSetBinaryValue(list, "reset", bytes + 2, 1);
  VXSetInt32Value(list, "m", 255);
  EXPECT_EQ(Dump(list, false),
            "bin=ARRAY\n  [0]=\n  [1]= a\n  [2]=ab 1\nn=ff\n"
            "later=ARRAY\n  [0]=ff\n\n  [1]=10\n\nreset= 1\nm=255\n");
}

// Each dump goes out whole between its own head and foot lines, and each
// head line sets the base of standard error back to decimal.
TEST_F(HandlePrinter, ConcurrentDumpsDoNotInterleave) {
  ScopedList lists[2];
  const unsigned char byte = 0x10;
  const _tag_BINARYITEM item = {1, &byte};
  VXSetBinaryItemArray(lists[0], "b", 1, &item);
  VXSetInt32Value(lists[0], "v", 16);
  VXSetInt32Value(lists[1], "v", 16);
  const std::string frames[2] = {Framed(lists[0], "b=ARRAY\n  [0]=10\nv=10\n"),
                                 Framed(lists[1], "v=16\n")};
  ::testing::internal::CaptureStderr();
  auto dump = [&lists](int l) {
    for (int i = 0; i < 100; ++i)
      PrintHandleInfo(lists[l], false);
  };
  std::thread a(dump, 0), b(dump, 1);
  a.join();
  b.join();
  const std::string captured = ::testing::internal::GetCapturedStderr();
  std::size_t at = 0, dumps = 0;
  for (; at < captured.size(); ++dumps) {
    const int l = captured.compare(at, frames[0].size(), frames[0]) == 0 ? 0 : 1;
    ASSERT_EQ(captured.compare(at, frames[l].size(), frames[l]), 0) << "interleaved at " << at;
    at += frames[l].size();
  }
  EXPECT_EQ(dumps, 200u);
  std::cerr << std::dec;
}

}  // namespace
}  // namespace vxbus
