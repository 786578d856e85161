// SPDX-License-Identifier: MIT
// Decodes the flat image of one list (the records of vxbus.h, back to back)
// into a List. Every offset, length and count is checked against the image
// before it is used, so the image may come from an untrusted file.
#ifndef VXCTL_IMAGE_DECODER_H_
#define VXCTL_IMAGE_DECODER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "list_model.h"

namespace vxctl {

// Gives the nested list at a child index (0xFFFFFFFF is the null index), or
// null for an index that names none. May fail by setting `error`.
using ChildResolver = std::function<ListPtr(std::uint32_t index, std::string& error)>;

// Fills `out` from `size` bytes at `image`. False with a reason in `error`
// (which names the record's byte offset) when the image is damaged.
bool DecodeImage(const unsigned char* image, std::size_t size, const ChildResolver& child,
                 List& out, std::string& error);

}  // namespace vxctl

#endif  // VXCTL_IMAGE_DECODER_H_
