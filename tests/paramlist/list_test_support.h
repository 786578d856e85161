// SPDX-License-Identifier: MIT
// Helpers for the list tests: byte patterns, handles that close themselves,
// and a fixture that checks every test gives back all the lists it made.
#ifndef VXBUS_TESTS_PARAMLIST_LIST_TEST_SUPPORT_H_
#define VXBUS_TESTS_PARAMLIST_LIST_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "paramlist/handle.h"
#include "runtime/referenced_ptr.h"

namespace vxbus {
namespace testing {

inline std::string Hex(const unsigned char* data, std::size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  for (std::size_t i = 0; i < n; ++i)
    s += {kDigits[data[i] >> 4], kDigits[data[i] & 15], ' '};
  return s;
}

inline std::string ImageHex(HVXPARAMLIST list) {
  return Hex(ListFromHandle(list)->Data(), ListFromHandle(list)->Used());
}

// `pattern` is hex pairs; blanks and '|' only separate. Gives it as Hex does.
inline std::string HexPattern(const std::string& pattern) {
  std::string hex;
  for (char c : pattern) {
    if (c == ' ' || c == '|') continue;
    hex += c;
    if (hex.size() % 3 == 2) hex += ' ';
  }
  return hex;
}

// Closes its handle at the end of the scope, so that a failed assertion does
// not also show up as a leaked list.
class ScopedList {
 public:
  ScopedList() : handle_(VXCreateParamList()) {}
  explicit ScopedList(HVXPARAMLIST adopted) : handle_(adopted) {}
  ~ScopedList() { VXCloseHandle(handle_); }
  ScopedList(const ScopedList&) = delete;
  ScopedList& operator=(const ScopedList&) = delete;

  operator HVXPARAMLIST() const { return handle_; }  // NOLINT: used as a handle
  ParamList* operator->() const { return ListFromHandle(handle_); }

 private:
  HVXPARAMLIST handle_;
};

inline std::string Dump(HVXPARAMLIST list, bool printTypes = true) {
  std::ostringstream out;
  PrintHandleInfoRecurse(out, list, printTypes, 0);
  return out.str();
}

inline std::int32_t RefCount(HVXPARAMLIST list) {
  return MTObjects::ReferenceAccess::Count(ListFromHandle(list));
}

inline std::uint32_t LiveLists() {
  return DEBUG_VXObjectCount().paramLists;
}

class LeakCheckedTest : public ::testing::Test {
 protected:
  void SetUp() override { liveAtStart_ = LiveLists(); }
  void TearDown() override { EXPECT_EQ(LiveLists(), liveAtStart_) << "a list was leaked"; }

 private:
  std::uint32_t liveAtStart_ = 0;
};

// One parameter of every scalar and array type but the handle array, whose
// copy has quirks of its own; `child` is nested under "h".
inline void FillEveryType(HVXPARAMLIST l, HVXPARAMLIST child) {
  static const unsigned char bytes[] = {9, 8, 7, 6, 5};
  static const char* texts[] = {"one", nullptr, "three"};
  static const std::uint32_t dwords[] = {1, 2, 3};
  static const std::uint64_t qwords[] = {0x100000001ull, ~0ull};
  static const _tag_BINARYITEM items[] = {{5, bytes}, {0, nullptr}, {1, bytes + 2}};
  VXSetStringValue(l, "s", "text");
  VXSetStringValue(l, "", nullptr);
  VXSetInt32Value(l, "i", 0xFFFFFFFFu);
  VXSetInt64Value(l, "q", 1ull << 40);
  VXSetBinaryValue(l, "b", bytes, 3);
  VXSetBinaryValue(l, "b0", nullptr, 0);
  VXSetHandleValue(l, "h", child);
  VXSetHandleValue(l, "null", VX_INVALID_PARAMLIST);
  VXSetStringArray(l, "sa", 3, texts);
  VXSetInt32Array(l, "ia", 3, dwords);
  VXSetInt64Array(l, "qa", 2, qwords);
  VXSetBinaryItemArray(l, "ba", 3, items);
}

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_PARAMLIST_LIST_TEST_SUPPORT_H_
