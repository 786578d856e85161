// SPDX-License-Identifier: MIT
#include "list_bridge.h"

#include <vector>

#include "image_decoder.h"

namespace vxctl {
namespace {

HVXPARAMLIST HandleOrNull(const ListPtr& list) {
  return list ? ToHandle(*list) : VX_INVALID_PARAMLIST;
}

void SetValue(HVXPARAMLIST h, const char* name, const Value& v) {
  switch (v.type) {
    case PT_STRING:
      VXSetStringValue(h, name, v.bytes.c_str());
      return;
    case PT_INT32:
      VXSetInt32Value(h, name, static_cast<std::uint32_t>(v.number));
      return;
    case PT_INT64:
      VXSetInt64Value(h, name, v.number);
      return;
    case PT_BINARY:
      VXSetBinaryValue(h, name, v.bytes.data(), static_cast<std::uint32_t>(v.bytes.size()));
      return;
    case PT_PARAMHANDLE: {
      HVXPARAMLIST child = HandleOrNull(v.list);
      VXSetHandleValue(h, name, child);
      VXCloseHandle(child);
      return;
    }
    default:
      break;
  }
  const std::uint32_t count = static_cast<std::uint32_t>(
      v.type == (PT_ARRAY | PT_PARAMHANDLE)                                  ? v.lists.size()
      : (v.type == (PT_ARRAY | PT_INT32) || v.type == (PT_ARRAY | PT_INT64)) ? v.numbers.size()
                                                                             : v.items.size());
  switch (v.type) {
    case PT_ARRAY | PT_STRING: {
      std::vector<const char*> texts;
      for (const auto& s : v.items)
        texts.push_back(s.c_str());
      VXSetStringArray(h, name, count, texts.data());
      return;
    }
    case PT_ARRAY | PT_INT32: {
      std::vector<std::uint32_t> words(v.numbers.begin(), v.numbers.end());
      VXSetInt32Array(h, name, count, words.data());
      return;
    }
    case PT_ARRAY | PT_INT64:
      VXSetInt64Array(h, name, count, v.numbers.data());
      return;
    case PT_ARRAY | PT_BINARY: {
      std::vector<const void*> data;
      std::vector<std::uint32_t> lengths;
      for (const auto& b : v.items) {
        data.push_back(b.data());
        lengths.push_back(static_cast<std::uint32_t>(b.size()));
      }
      VXSetBinaryArray(h, name, count, data.data(), lengths.data());
      return;
    }
    case PT_ARRAY | PT_PARAMHANDLE: {
      std::vector<HVXPARAMLIST> children;
      for (const auto& l : v.lists)
        children.push_back(HandleOrNull(l));
      VXSetHandleArray(h, name, count, children.data());
      for (HVXPARAMLIST c : children)
        VXCloseHandle(c);
      return;
    }
  }
}

ListPtr Decode(HVXPARAMLIST handle, int depth, std::string& error) {
  if (depth > kMaxDepth) {
    error = "lists nested deeper than " + std::to_string(kMaxDepth);
    return nullptr;
  }
  auto list = std::make_shared<List>();
  const auto* image = reinterpret_cast<const unsigned char*>(VXGetFirstParam(handle));
  ChildResolver child = [&](std::uint32_t index, std::string& e) -> ListPtr {
    HVXPARAMLIST c = VXGetHandleById(handle, index);  // borrowed from the parent
    return c == VX_INVALID_PARAMLIST ? nullptr : Decode(c, depth + 1, e);
  };
  if (!DecodeImage(image, image ? VXGetHandleSize(handle) : 0, child, *list, error)) return nullptr;
  return list;
}

}  // namespace

void FillHandle(HVXPARAMLIST handle, const List& list) {
  for (const auto& p : list.params)
    SetValue(handle, p.first.c_str(), p.second);
}

HVXPARAMLIST ToHandle(const List& list) {
  HVXPARAMLIST h = VXCreateParamList();
  FillHandle(h, list);
  return h;
}

ListPtr FromHandle(HVXPARAMLIST handle, std::string& error) {
  return Decode(handle, 0, error);
}

}  // namespace vxctl
