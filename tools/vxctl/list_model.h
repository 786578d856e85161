// SPDX-License-Identifier: MIT
// A parameter list as plain C++ values, the form in which vxctl moves lists
// between text, JSON, files and the library. Types are the stored type bytes
// of vxbus.h (PT_STRING ... PT_BINARY, with PT_ARRAY for arrays).
#ifndef VXCTL_LIST_MODEL_H_
#define VXCTL_LIST_MODEL_H_

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vxctl {

struct List;
using ListPtr = std::shared_ptr<List>;  // null stands for a handle that holds no list

struct Value {
  int type = 0;
  std::uint64_t number = 0;            // PT_INT32, PT_INT64
  std::string bytes;                   // PT_STRING (without its NUL), PT_BINARY
  ListPtr list;                        // PT_PARAMHANDLE
  std::vector<std::uint64_t> numbers;  // int32 and int64 arrays
  std::vector<std::string> items;      // string and binary arrays
  std::vector<ListPtr> lists;          // handle arrays
};

struct List {
  std::vector<std::pair<std::string, Value>> params;  // in list order

  // Adds or replaces a parameter; a replaced one moves to the end, as in a list.
  void Set(const std::string& name, Value value);

  // The same as Set for each of `values` in order, in time linear in their
  // number: Set searches the list, which for a JSON object of a million
  // members would take hours.
  void SetAll(std::vector<std::pair<std::string, Value>> values);
};

// Names are stored behind a one-byte offset: at most this long, and no NUL.
constexpr std::size_t kMaxNameLength = 253;
// Deepest nesting that any reader here accepts; deeper input is refused.
constexpr int kMaxDepth = 64;

// An empty string when `name` can name a parameter, else why it cannot.
std::string CheckName(const std::string& name);

}  // namespace vxctl

#endif  // VXCTL_LIST_MODEL_H_
