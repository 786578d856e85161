// SPDX-License-Identifier: MIT
#include "stream_file.h"

#include <cstring>
#include <vector>

#include "image_decoder.h"

namespace vxctl {
namespace {

class StreamReader {
 public:
  explicit StreamReader(const std::string& bytes) : bytes_(bytes) {}

  bool Pair(std::uint32_t& size, std::uint32_t& children, std::string& error) {
    if (Left() < 8) {
      error = "the stream ends inside the pair at byte " + std::to_string(at_);
      return false;
    }
    std::memcpy(&size, bytes_.data() + at_, 4);
    std::memcpy(&children, bytes_.data() + at_ + 4, 4);
    at_ += 8;
    return true;
  }

  ListPtr Tree(std::uint32_t size, std::uint32_t childCount, int depth, std::string& error) {
    if (depth > kMaxDepth) {
      error = "lists nested deeper than " + std::to_string(kMaxDepth);
      return nullptr;
    }
    if (size > Left()) {
      error = "an image of " + std::to_string(size) + " bytes at byte " + std::to_string(at_) +
              " runs past the end of the stream";
      return nullptr;
    }
    const std::size_t imageAt = at_;
    at_ += size;
    // Each nested list takes at least its 8-byte pair, so the count is
    // bounded by what is left before anything is sized by it.
    if (childCount > Left() / 8) {
      error = "a list at byte " + std::to_string(imageAt) + " claims " +
              std::to_string(childCount) + " nested lists, more than the stream can hold";
      return nullptr;
    }
    std::vector<ListPtr> children;
    for (std::uint32_t i = 0; i < childCount; ++i) {
      std::uint32_t childSize = 0, grandChildren = 0;
      if (!Pair(childSize, grandChildren, error)) return nullptr;
      children.push_back(Tree(childSize, grandChildren, depth + 1, error));
      if (!children.back()) return nullptr;
    }
    auto list = std::make_shared<List>();
    ChildResolver child = [&](std::uint32_t index, std::string&) -> ListPtr {
      return index < children.size() ? children[index] : nullptr;
    };
    std::string why;
    if (!DecodeImage(reinterpret_cast<const unsigned char*>(bytes_.data()) + imageAt, size, child,
                     *list, why)) {
      error = "image at byte " + std::to_string(imageAt) + ": " + why;
      return nullptr;
    }
    return list;
  }

  std::size_t Left() const { return bytes_.size() - at_; }

 private:
  const std::string& bytes_;
  std::size_t at_ = 0;
};

void AppendWord(std::string& out, std::uint32_t v) {
  out.append(reinterpret_cast<const char*>(&v), 4);
}

std::vector<HVXPARAMLIST> Children(HVXPARAMLIST handle) {
  std::vector<HVXPARAMLIST> children;
  for (std::uint32_t i = 0;; ++i) {
    HVXPARAMLIST c = VXGetHandleById(handle, i);
    if (c == VX_INVALID_PARAMLIST) return children;
    children.push_back(c);
  }
}

// The image of `handle`, then each nested list behind its pair, in pre-order.
void AppendTree(std::string& out, HVXPARAMLIST handle, int depth) {
  const char* image = reinterpret_cast<const char*>(VXGetFirstParam(handle));
  if (image) out.append(image, VXGetHandleSize(handle));
  if (depth >= kMaxDepth) return;  // a list that holds itself; the reader refuses it anyway
  for (HVXPARAMLIST c : Children(handle)) {
    AppendWord(out, VXGetHandleSize(c));
    AppendWord(out, static_cast<std::uint32_t>(Children(c).size()));
    AppendTree(out, c, depth + 1);
  }
}

}  // namespace

ListPtr ParseStream(const std::string& bytes, std::string& error) {
  StreamReader reader(bytes);
  std::uint32_t size = 0, children = 0;
  if (!reader.Pair(size, children, error)) return nullptr;
  ListPtr list = reader.Tree(size, children, 0, error);
  if (list && reader.Left() != 0) {
    error = std::to_string(reader.Left()) + " bytes follow the end of the list";
    return nullptr;
  }
  return list;
}

std::string SerializeStream(HVXPARAMLIST handle) {
  std::string out;
  AppendWord(out, VXGetHandleSize(handle));
  AppendWord(out, static_cast<std::uint32_t>(Children(handle).size()));
  AppendTree(out, handle, 0);
  return out;
}

}  // namespace vxctl
