// Compares a list's image with an expected byte pattern in which "xx" marks
// filler: bytes the store leaves as the allocation held them.
#ifndef VXBUS_TESTS_PARAMLIST_IMAGE_PATTERN_H_
#define VXBUS_TESTS_PARAMLIST_IMAGE_PATTERN_H_

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "paramlist/handle.h"

namespace vxbus {
namespace testing {

// One entry per byte; -1 for filler. Blanks and '|' only separate.
inline std::vector<int> ParsePattern(const std::string& pattern) {
  std::vector<int> bytes;
  for (std::size_t i = 0; i < pattern.size();) {
    if (std::isspace(static_cast<unsigned char>(pattern[i])) || pattern[i] == '|') {
      ++i;
      continue;
    }
    std::string pair = pattern.substr(i, 2);
    bytes.push_back(pair == "xx" ? -1 : std::stoi(pair, nullptr, 16));
    i += 2;
  }
  return bytes;
}

inline std::string Hex(const unsigned char* data, std::size_t n) {
  std::string s;
  char b[4];
  for (std::size_t i = 0; i < n; ++i) {
    std::snprintf(b, sizeof b, "%02x ", data[i]);
    s += b;
  }
  return s;
}

inline ::testing::AssertionResult BytesMatch(const unsigned char* data, std::size_t n,
                                             const std::string& pattern) {
  std::vector<int> expected = ParsePattern(pattern);
  if (expected.size() != n) {
    return ::testing::AssertionFailure()
           << "length " << n << ", expected " << expected.size() << ": " << Hex(data, n);
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (expected[i] >= 0 && expected[i] != data[i]) {
      return ::testing::AssertionFailure() << "byte " << i << " differs: " << Hex(data, n);
    }
  }
  return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult ImageMatches(HVXPARAMLIST list, const std::string& pattern) {
  const FastHolderImpl* l = ListFromHandle(list);
  return BytesMatch(l->Data(), l->Used(), pattern);
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
  FastHolderImpl* operator->() const { return ListFromHandle(handle_); }

 private:
  HVXPARAMLIST handle_;
};

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_PARAMLIST_IMAGE_PATTERN_H_
