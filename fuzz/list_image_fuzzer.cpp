// SPDX-License-Identifier: MIT
// A list image from a peer, walked as an application walks it: every record
// by the walkers, every value by the getters of its name and of every type,
// every element in place, then dumped by both printers and changed by
// setters whose arguments point into the list itself. The first byte says
// how many (empty) nested lists stand behind the image, the rest is the
// image; it is read through the stream reader, as every image from a peer is.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <streambuf>
#include <vector>

#include "byte_channel.h"
#include "paramlist/handle.h"
#include "paramlist/param_list.h"

using vxbus::ChannelRef;
using vxbus::ListFromHandle;
using vxbus::ParamList;
using vxbus::fuzz::ByteChannel;

namespace {

volatile std::uint64_t g_sink;
// The read limit of a channel by default.
constexpr std::uint32_t kDefaultReadLimit = 1073741824;

void Use(const void* p, std::size_t n) {
  const auto* bytes = static_cast<const unsigned char*>(p);
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < n; ++i)
    sum += bytes[i];
  g_sink = g_sink + sum;
}
void UseText(const char* text) {
  if (text != nullptr) Use(text, std::strlen(text));
}
void UseBinary(const _tag_BINARYVALUE* value) {
  if (value != nullptr) Use(value->data, value->length);
}

// Discards everything, so the printer's walk runs to the end.
class NullBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

void UseElements(HVXPARAMLIST list, const _tag_VXPARAMINFO* info) {
  const std::uint32_t n = info->GetArraySize();
  for (std::uint32_t i = 0; i < n; ++i) {
    UseText(info->GetString(i));
    UseBinary(info->GetBinary(i));
    g_sink = g_sink + info->GetInt32(i) + info->GetInt64(i);
    g_sink = g_sink + VXGetParamCount(info->GetHandle(list, i));
  }
}

void UseByName(HVXPARAMLIST list, const char* name) {
  UseText(VXGetStringValue(list, name));
  g_sink = g_sink + VXGetInt32Value(list, name) + VXGetInt64Value(list, name);
  UseBinary(VXGetBinaryValue(list, name));
  HVXPARAMLIST child = VXGetHandleValue(list, name);  // the caller's own reference
  g_sink = g_sink + VXGetParamCount(child);
  VXCloseHandle(child);
  const _tag_VXDWORDARRAY dwords = VXGetInt32Array(list, name);
  Use(dwords.data, 4ull * dwords.count);
  const _tag_VXQWORDARRAY qwords = VXGetInt64Array(list, name);
  // A kept quirk: it answers for the 32-bit array, whose elements are 4 bytes.
  Use(qwords.data, 4ull * qwords.count);
  const _tag_VXDWORDARRAY ids = VXGetHandleArray(list, name);
  Use(ids.data, 4ull * ids.count);
  const char* texts[4];
  for (std::uint32_t i = 0, n = VXGetStringArray(list, name, texts, 4, 0); i < n && i < 4; ++i)
    UseText(texts[i]);
  const _tag_BINARYVALUE* binaries[4];
  for (std::uint32_t i = 0, n = VXGetBinaryArray(list, name, binaries, 4, 0); i < n && i < 4; ++i)
    UseBinary(binaries[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > (1u << 16)) return 0;
  const std::uint32_t children = data[0] % 4;
  // The image, then the pair of each empty child but the last.
  std::vector<std::uint8_t> stream(data + 1, data + size);
  stream.resize(stream.size() + 8 * children, 0);
  const auto imageSize = static_cast<std::uint32_t>(size - 1);
  ChannelRef channel(new ByteChannel(stream.data(), stream.size()));
  HVXPARAMLIST list = VXCreateParamList();
  std::uint32_t next[2] = {};
  if (ListFromHandle(list)->ReadList(channel.get(), kDefaultReadLimit, imageSize, children, false,
                                     &next[0], &next[1]) < 0) {
    VXCloseHandle(list);
    return 0;
  }

  for (const _tag_VXPARAMINFO* info = VXGetFirstParam(list); info != nullptr;
       info = VXGetNextParam(list, info)) {
    UseText(info->GetName());
    UseByName(list, info->name);
    UseElements(list, info);
  }

  char buffer[512];
  PrintHandleInfoToBuffer(list, true, buffer, sizeof buffer);
  NullBuffer discard;
  std::ostream out(&discard);
  PrintHandleInfoRecurse(out, list, false, 0);

  // Setters that read their arguments from the list they change; a record
  // pointer dies with every change, so each step takes the first one afresh.
  auto first = [list] { return VXGetFirstParam(list); };
  if (first() != nullptr)
    VXSetStringValue(list, first()->name, VXGetStringValue(list, first()->name));
  if (first() != nullptr) {
    const _tag_BINARYVALUE* b = VXGetBinaryValue(list, first()->name);
    if (b != nullptr) VXSetBinaryValue(list, first()->name, b->data, b->length);
  }
  if (first() != nullptr) {
    const _tag_VXDWORDARRAY d = VXGetInt32Array(list, first()->name);
    VXSetInt32Array(list, first()->name, d.count, d.data);
  }
  if (first() != nullptr) VXRemoveParamByInfo(list, first());
  VXCloseHandle(list);
  return 0;
}
