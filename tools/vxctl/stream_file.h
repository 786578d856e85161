// SPDX-License-Identifier: MIT
// A list saved in its stream form, as it travels in a frame: the pair of the
// root (its image size and its number of nested lists, two 32-bit
// little-endian words), then the root's image, then for every nested list in
// pre-order its pair and its image.
#ifndef VXCTL_STREAM_FILE_H_
#define VXCTL_STREAM_FILE_H_

#include <string>

#include "list_model.h"
#include "vxbus.h"

namespace vxctl {

// Files larger than this are refused before they are read.
constexpr std::size_t kMaxStreamFileSize = 64u << 20;

// Parses `bytes`, which may come from anyone: sizes and counts are checked
// against what is left, and nesting against kMaxDepth. Null with a reason in
// `error` when the bytes are not one whole list.
ListPtr ParseStream(const std::string& bytes, std::string& error);

// The stream form of `handle` and the lists nested in it.
std::string SerializeStream(HVXPARAMLIST handle);

}  // namespace vxctl

#endif  // VXCTL_STREAM_FILE_H_
