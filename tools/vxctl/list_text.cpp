// SPDX-License-Identifier: MIT
#include "list_text.h"

#include "json.h"
#include "typed_value.h"
#include "vxbus.h"

namespace vxctl {
namespace {

std::string Hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    out += kDigits[c >> 4];
    out += kDigits[c & 15];
  }
  return out;
}

std::string Name(const std::string& name) {
  for (unsigned char c : name)
    if (c <= 0x20 || c == 0x7f || c == '"') return QuoteText(name);
  return name.empty() ? "\"\"" : name;
}

void AppendList(const List& list, int depth, std::string& out);

// " = value" of a value or of element `index` of an array, and the line end;
// a nested list's lines follow.
void AppendScalar(int type, const Value& v, std::size_t index, int depth, std::string& out) {
  const bool element = (v.type & PT_ARRAY) != 0;
  std::string text;
  switch (type) {
    case PT_STRING:
      text = QuoteText(element ? v.items[index] : v.bytes);
      break;
    case PT_INT32:
    case PT_INT64:
      text = std::to_string(element ? v.numbers[index] : v.number);
      break;
    case PT_BINARY:
      text = Hex(element ? v.items[index] : v.bytes);
      break;
    default: {
      const ListPtr& child = element ? v.lists[index] : v.list;
      if (!child) {
        out += " = null\n";
      } else {
        out += '\n';
        AppendList(*child, depth + 1, out);
      }
      return;
    }
  }
  out += text.empty() ? " =\n" : " = " + text + "\n";
}

void AppendList(const List& list, int depth, std::string& out) {
  const std::string indent(static_cast<std::size_t>(depth) * 2, ' ');
  for (const auto& p : list.params) {
    const Value& v = p.second;
    const int type = v.type & ~PT_ARRAY;
    out += indent + Name(p.first) + ":" + TypeNameOf(v.type);
    if (!(v.type & PT_ARRAY)) {
      AppendScalar(type, v, 0, depth, out);
      continue;
    }
    const std::size_t count = type == PT_PARAMHANDLE                   ? v.lists.size()
                              : (type == PT_INT32 || type == PT_INT64) ? v.numbers.size()
                                                                       : v.items.size();
    out += "[] (" + std::to_string(count) + ")\n";
    for (std::size_t i = 0; i < count; ++i) {
      out += indent + "  [" + std::to_string(i) + "]";
      AppendScalar(type, v, i, depth + 1, out);
    }
  }
}

}  // namespace

std::string QuoteText(const std::string& text) {
  std::string quoted = JsonQuote(text);
  std::string out;
  out.reserve(quoted.size());
  for (char c : quoted)
    out += c == '\x7f' ? std::string("\\u007f") : std::string(1, c);
  return out;
}

std::string ListToText(const List& list) {
  std::string out;
  AppendList(list, 0, out);
  return out;
}

}  // namespace vxctl
