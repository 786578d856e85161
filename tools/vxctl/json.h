// SPDX-License-Identifier: MIT
// A small JSON reader and writer for vxctl, bounded in size and depth since
// it reads what users and scripts hand in. Numbers are integers only: lists
// hold no fractions.
#ifndef VXCTL_JSON_H_
#define VXCTL_JSON_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vxctl {

constexpr std::size_t kMaxJsonSize = 64u << 20;
// Values in one document, counting every member value and array element at
// any depth. A value takes about a hundred bytes here and in the list built
// from it, so this bounds the memory a document can make vxctl take.
constexpr std::size_t kMaxJsonValues = 1u << 20;

struct Json {
  enum Kind { kNull, kBool, kInteger, kString, kArray, kObject };
  Kind kind = kNull;
  bool boolean = false;
  bool negative = false;  // kInteger: the value is -magnitude
  std::uint64_t magnitude = 0;
  std::string text;                                   // kString, UTF-8
  std::vector<Json> items;                            // kArray
  std::vector<std::pair<std::string, Json>> members;  // kObject, in order of appearance
};

// Parses one JSON value filling all of `text` (surrounding white space
// allowed), in time linear in its size. False with a reason and the byte
// offset in `error`; past kMaxJsonSize, kMaxDepth or kMaxJsonValues before
// any more is allocated.
bool ParseJson(const std::string& text, Json& out, std::string& error);

// `text` as a JSON string literal, quotes included.
std::string JsonQuote(const std::string& text);

}  // namespace vxctl

#endif  // VXCTL_JSON_H_
