#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "list_test_support.h"
#include "vxbus.h"

namespace vxbus {
namespace {

using VX::ParamListHolder;

std::string Head(HVXPARAMLIST list) {
  std::ostringstream out;
  out << "=====[" << list.value << "]\n";
  return out.str();
}

const std::string kFoot = std::string(33, '=') + "\n";

std::string Framed(HVXPARAMLIST list, const std::string& body) {
  return Head(list) + body + kFoot;
}

std::string ToBuffer(HVXPARAMLIST list, bool printTypes) {
  std::vector<char> buffer(1 << 16, 'X');
  PrintHandleInfoToBuffer(list, printTypes, buffer.data(),
                          static_cast<std::uint32_t>(buffer.size()));
  return std::string(buffer.data());
}

std::string Recurse(HVXPARAMLIST list, bool printTypes, std::int32_t depth) {
  std::ostringstream out;
  PrintHandleInfoRecurse(out, list, printTypes, depth);
  return out.str();
}

ParamListHolder NewList() {
  ParamListHolder list;
  EXPECT_TRUE(list.NewList());
  return list;
}

class HandlePrinter : public testing::LeakCheckedTest {
 protected:
  // id = 7, data = {0x0A, 0xFF}, sub = {s = "hi"}
  ParamListHolder Example() {
    ParamListHolder list = NewList();
    ParamListHolder sub = NewList();
    const unsigned char bytes[] = {0x0A, 0xFF};
    sub.SetString("s", "hi");
    list.SetInt32("id", 7);
    list.SetBinary("data", bytes, 2);
    list.SetHandle("sub", sub);
    return list;
  }
};

TEST_F(HandlePrinter, ExampleWithAndWithoutTypes) {
  ParamListHolder list = Example();
  const HVXPARAMLIST h = list.GetHandle();
  EXPECT_EQ(ToBuffer(h, true), Framed(h,
                                      "id[PT_INT32]=7\n"
                                      "data[PT_BINARY]= aff\n"
                                      "sub[PT_PARAMHANDLE]=\n"
                                      "  s[PT_STRING]=hi\n"));
  EXPECT_EQ(ToBuffer(h, false), Framed(h,
                                       "id=7\n"
                                       "data= aff\n"
                                       "sub=\n"
                                       "  s=hi\n"));
}

TEST_F(HandlePrinter, StandardErrorGetsTheSameText) {
  ParamListHolder list = Example();
  ::testing::internal::CaptureStderr();
  PrintHandleInfo(list.GetHandle(), true);
  PrintHandleInfo(list.GetHandle(), false);
  const std::string captured = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(captured, ToBuffer(list.GetHandle(), true) + ToBuffer(list.GetHandle(), false));
}

TEST_F(HandlePrinter, NullAndEmptyListsPrintOnlyTheFrame) {
  EXPECT_EQ(ToBuffer(VX_INVALID_PARAMLIST, true), Framed(VX_INVALID_PARAMLIST, ""));
  ParamListHolder empty = NewList();
  EXPECT_EQ(ToBuffer(empty.GetHandle(), true), Framed(empty.GetHandle(), ""));
  EXPECT_EQ(Recurse(VX_INVALID_PARAMLIST, true, 0), "");

  // A list emptied after use still holds its image allocation.
  empty.SetInt32("x", 1);
  empty.RemoveAll();
  EXPECT_EQ(Recurse(empty.GetHandle(), true, 0), "");
}

TEST_F(HandlePrinter, ScalarValues) {
  ParamListHolder list = NewList();
  list.SetString("s", "text with spaces");
  list.SetString("empty", nullptr);
  list.SetInt32("big", 0xFFFFFFFFu);
  list.SetInt64("wide", 1ull << 40);
  list.SetBinary("none", "", 0);
  list.SetHandle("nothing", ParamListHolder());
  EXPECT_EQ(Recurse(list.GetHandle(), true, 0),
            "s[PT_STRING]=text with spaces\n"
            "empty[PT_STRING]=\n"
            "big[PT_INT32]=4294967295\n"
            "wide[PT_INT64]=1099511627776\n"
            "none[PT_BINARY]=\n"
            "nothing[PT_PARAMHANDLE]=\n");
}

TEST_F(HandlePrinter, IndentFollowsDepth) {
  ParamListHolder inner = NewList();
  inner.SetInt32("deep", 1);
  ParamListHolder middle = NewList();
  middle.SetHandle("inner", inner);
  middle.SetInt32("after", 2);
  ParamListHolder outer = NewList();
  outer.SetHandle("middle", middle);

  EXPECT_EQ(Recurse(outer.GetHandle(), false, 0),
            "middle=\n"
            "  inner=\n"
            "    deep=1\n"
            "  after=2\n");
  EXPECT_EQ(Recurse(inner.GetHandle(), false, 2), "    deep=1\n");
  EXPECT_EQ(Recurse(inner.GetHandle(), false, -3), "deep=1\n");
}

TEST_F(HandlePrinter, StringAndNumberArraysLeaveAnEmptyLineAfterEachElement) {
  ParamListHolder list = NewList();
  const char* texts[] = {"first", "second"};
  const unsigned narrow[] = {5, 6};
  const std::uint64_t wide[] = {1ull << 32};
  list.SetStringArray("n", 2, texts);
  list.SetInt32Array("d", 2, narrow);
  list.SetInt64Array("q", 1, wide);
  list.SetInt32Array("none", 0, narrow);

  const std::string expected =
      "n=ARRAY\n"
      "  [0]=first\n\n"
      "  [1]=second\n\n"
      "d=ARRAY\n"
      "  [0]=5\n\n"
      "  [1]=6\n\n"
      "q=ARRAY\n"
      "  [0]=4294967296\n\n"
      "none=ARRAY\n";
  EXPECT_EQ(Recurse(list.GetHandle(), true, 0), expected) << "no type labels on arrays";
  EXPECT_EQ(Recurse(list.GetHandle(), false, 0), expected);
}

TEST_F(HandlePrinter, HandleArrayElementsContinueTheIndexLine) {
  ParamListHolder one = NewList();
  one.SetInt32("a", 1);
  ParamListHolder two = NewList();
  two.SetInt32("b", 2);
  two.SetInt32("c", 3);
  ParamListHolder list = NewList();
  const HVXPARAMLIST items[] = {one.GetHandle(), VX_INVALID_PARAMLIST, two.GetHandle()};
  list.SetHandleArray("h", 3, items);

  EXPECT_EQ(Recurse(list.GetHandle(), false, 0),
            "h=ARRAY\n"
            "  [0]=    a=1\n\n"
            "  [1]=\n"
            "  [2]=    b=2\n"
            "    c=3\n\n");
  EXPECT_EQ(Recurse(list.GetHandle(), true, 1),
            "  h=ARRAY\n"
            "    [0]=      a[PT_INT32]=1\n\n"
            "    [1]=\n"
            "    [2]=      b[PT_INT32]=2\n"
            "      c[PT_INT32]=3\n\n");
}

TEST_F(HandlePrinter, BinaryArrayLeavesTheBaseHexadecimal) {
  ParamListHolder list = NewList();
  const unsigned char first[] = {0x0A};
  const unsigned char second[] = {0xAB, 0x01};
  const _tag_BINARYITEM items[] = {{1, first}, {0, first}, {2, second}};
  const unsigned later[] = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
  const unsigned char one = 0x01;
  list.SetBinaryArray("bin", 3, items);
  list.SetInt32("n", 255);
  list.SetInt32Array("later", 11, later);
  list.SetBinary("reset", &one, 1);
  list.SetInt32("m", 255);

  EXPECT_EQ(Recurse(list.GetHandle(), false, 0),
            "bin=ARRAY\n"
            "  [0]= a\n"
            "  [1]=\n"
            "  [2]=ab 1\n"
            "n=ff\n"
            "later=ARRAY\n"
            "  [0]=a\n\n  [1]=b\n\n  [2]=c\n\n  [3]=d\n\n  [4]=e\n\n  [5]=f\n\n"
            "  [6]=10\n\n  [7]=11\n\n  [8]=12\n\n  [9]=13\n\n  [a]=14\n\n"
            "reset= 1\n"
            "m=255\n");
}

TEST_F(HandlePrinter, BaseStaysDecimalUntilABinaryArrayHasBytes) {
  ParamListHolder list = NewList();
  const unsigned char unused = 0;
  const _tag_BINARYITEM items[] = {{0, &unused}};
  list.SetBinaryArray("bin", 1, items);
  list.SetInt32("n", 255);
  EXPECT_EQ(Recurse(list.GetHandle(), false, 0), "bin=ARRAY\n  [0]=\nn=255\n");
}

TEST_F(HandlePrinter, HeadLineResetsTheBaseOfStandardError) {
  ParamListHolder hex = NewList();
  const unsigned char byte = 0x10;
  const _tag_BINARYITEM item = {1, &byte};
  hex.SetBinaryArray("bin", 1, &item);
  ParamListHolder number = NewList();
  number.SetInt32("n", 255);

  ::testing::internal::CaptureStderr();
  PrintHandleInfo(hex.GetHandle(), false);
  PrintHandleInfo(number.GetHandle(), false);
  const std::string captured = ::testing::internal::GetCapturedStderr();
  std::cerr << std::dec;
  EXPECT_EQ(captured, Framed(hex.GetHandle(), "bin=ARRAY\n  [0]=10\n") +
                          Framed(number.GetHandle(), "n=255\n"));
}

TEST_F(HandlePrinter, BufferIsCutTerminatedAndZeroFilled) {
  ParamListHolder list = Example();
  const HVXPARAMLIST h = list.GetHandle();
  const std::string text = ToBuffer(h, true);
  const std::uint32_t n = static_cast<std::uint32_t>(text.size());

  char one[1] = {'X'};
  PrintHandleInfoToBuffer(h, true, one, 1);
  EXPECT_EQ(one[0], '\0');

  std::vector<char> exact(n + 1, 'X');
  PrintHandleInfoToBuffer(h, true, exact.data(), n + 1);
  EXPECT_EQ(std::string(exact.data()), text);

  std::vector<char> cut(n, 'X');
  PrintHandleInfoToBuffer(h, true, cut.data(), n);
  EXPECT_EQ(std::string(cut.data()), text.substr(0, n - 1));

  std::vector<char> roomy(n + 16, 'X');
  PrintHandleInfoToBuffer(h, true, roomy.data(), n + 16);
  EXPECT_EQ(std::string(roomy.data()), text);
  for (std::uint32_t i = n; i < n + 16; ++i)
    EXPECT_EQ(roomy[i], '\0') << "byte " << i;

  char untouched[1] = {'X'};
  PrintHandleInfoToBuffer(h, true, untouched, 0);
  EXPECT_EQ(untouched[0], 'X');
}

TEST_F(HandlePrinter, DamagedTypeBytePrintsTheNameThenThrows) {
  ParamListHolder list = NewList();
  list.SetInt32("x", 1);
  list.SetInt32("y", 2);
  // Pointers from a walk point into the image; write the type byte through one.
  unsigned char* type = const_cast<unsigned char*>(&list.GetFirst()->GetValue()->type);  // NOLINT
  const unsigned char saved = *type;

  *type = PT_UNKNOWN;
  std::ostringstream unknown;
  EXPECT_THROW(PrintHandleInfoRecurse(unknown, list.GetHandle(), true, 0),
               _tag_VXPARAMVALUE::DataDamaged);
  EXPECT_EQ(unknown.str(), "x[PT_UNKNOWN]=?\n");

  *type = 0x86;
  std::ostringstream other;
  EXPECT_THROW(PrintHandleInfoRecurse(other, list.GetHandle(), true, 0),
               _tag_VXPARAMVALUE::DataDamaged);
  EXPECT_EQ(other.str(), "x");

  char buffer[64] = "untouched";
  EXPECT_THROW(PrintHandleInfoToBuffer(list.GetHandle(), true, buffer, sizeof buffer),
               _tag_VXPARAMVALUE::DataDamaged);
  EXPECT_STREQ(buffer, "untouched");

  *type = saved;
}

// Two threads dump different lists to standard error at once; every dump
// must come out whole, its lines between its own head and foot.
TEST_F(HandlePrinter, ConcurrentDumpsDoNotInterleave) {
  constexpr int kDumps = 100;
  ParamListHolder lists[2] = {NewList(), NewList()};
  std::string bodies[2];
  for (int l = 0; l < 2; ++l) {
    for (int i = 0; i < 6; ++i) {
      const std::string name = std::string(1, static_cast<char>('a' + l)) + std::to_string(i);
      lists[l].SetInt32(name.c_str(), static_cast<unsigned>(i));
      bodies[l] += name + "=" + std::to_string(i) + "\n";
    }
  }
  const std::string frames[2] = {Framed(lists[0].GetHandle(), bodies[0]),
                                 Framed(lists[1].GetHandle(), bodies[1])};

  ::testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int l = 0; l < 2; ++l) {
    threads.emplace_back([&lists, l] {
      for (int i = 0; i < kDumps; ++i)
        PrintHandleInfo(lists[l].GetHandle(), false);
    });
  }
  for (std::thread& t : threads)
    t.join();
  const std::string captured = ::testing::internal::GetCapturedStderr();

  int seen[2] = {0, 0};
  std::size_t at = 0;
  while (at < captured.size()) {
    int which = captured.compare(at, frames[0].size(), frames[0]) == 0   ? 0
                : captured.compare(at, frames[1].size(), frames[1]) == 0 ? 1
                                                                         : -1;
    ASSERT_NE(which, -1) << "interleaved output at byte " << at;
    ++seen[which];
    at += frames[which].size();
  }
  EXPECT_EQ(seen[0], kDumps);
  EXPECT_EQ(seen[1], kDumps);
}

}  // namespace
}  // namespace vxbus
