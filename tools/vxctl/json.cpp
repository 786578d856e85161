// SPDX-License-Identifier: MIT
#include "json.h"

#include "list_model.h"

namespace vxctl {
namespace {

class Parser {
 public:
  explicit Parser(const std::string& s) : s_(s) {}

  bool Document(Json& out, std::string& error) {
    if (s_.size() > kMaxJsonSize) return Fail("input larger than 64 MiB", error);
    if (!Value(out, 0, error)) return false;
    Space();
    if (at_ != s_.size()) return Fail("unexpected text after the value", error);
    return true;
  }

 private:
  bool Fail(const std::string& why, std::string& error) {
    error = "JSON at byte " + std::to_string(at_) + ": " + why;
    return false;
  }
  void Space() {
    while (at_ < s_.size() &&
           (s_[at_] == ' ' || s_[at_] == '\t' || s_[at_] == '\n' || s_[at_] == '\r'))
      ++at_;
  }
  bool Literal(const char* word) {
    std::string w(word);
    if (s_.compare(at_, w.size(), w) != 0) return false;
    at_ += w.size();
    return true;
  }

  bool Value(Json& out, int depth, std::string& error) {
    if (depth > kMaxDepth) return Fail("nested deeper than " + std::to_string(kMaxDepth), error);
    Space();
    if (at_ >= s_.size()) return Fail("a value is missing", error);
    char c = s_[at_];
    if (c == '{') return Object(out, depth, error);
    if (c == '[') return Array(out, depth, error);
    if (c == '"') {
      out.kind = Json::kString;
      return String(out.text, error);
    }
    if (c == '-' || (c >= '0' && c <= '9')) return Number(out, error);
    if (Literal("true") || Literal("false")) {
      out.kind = Json::kBool;
      out.boolean = c == 't';
      return true;
    }
    if (Literal("null")) return true;
    return Fail("not a JSON value", error);
  }

  bool At(char c) const { return at_ < s_.size() && s_[at_] == c; }

  // Counts a member or an element before room is made for it.
  bool Counted(std::string& error) {
    if (++values_ <= kMaxJsonValues) return true;
    return Fail("more than " + std::to_string(kMaxJsonValues) + " values", error);
  }

  // The members of an object or the items of an array, from its opening
  // bracket to `close`; `item` reads one.
  template <class Item>
  bool Sequence(char close, Item item, std::string& error) {
    ++at_;
    Space();
    if (At(close)) return ++at_, true;
    for (;;) {
      if (!item()) return false;
      Space();
      if (At(',')) {
        ++at_;
        continue;
      }
      if (At(close)) return ++at_, true;
      return Fail(std::string("',' or '") + close + "' is missing", error);
    }
  }

  bool Object(Json& out, int depth, std::string& error) {
    out.kind = Json::kObject;
    return Sequence(
        '}',
        [&] {
          Space();
          std::string key;
          if (!At('"')) return Fail("a member name is missing", error);
          if (!Counted(error)) return false;
          if (!String(key, error)) return false;
          Space();
          if (!At(':')) return Fail("':' is missing", error);
          ++at_;
          out.members.emplace_back(std::move(key), Json());
          return Value(out.members.back().second, depth + 1, error);
        },
        error);
  }

  bool Array(Json& out, int depth, std::string& error) {
    out.kind = Json::kArray;
    return Sequence(
        ']',
        [&] {
          if (!Counted(error)) return false;
          out.items.emplace_back();
          return Value(out.items.back(), depth + 1, error);
        },
        error);
  }

  bool Number(Json& out, std::string& error) {
    out.kind = Json::kInteger;
    out.negative = s_[at_] == '-';
    if (out.negative) ++at_;
    std::size_t digits = at_;
    while (at_ < s_.size() && s_[at_] >= '0' && s_[at_] <= '9') {
      unsigned d = static_cast<unsigned>(s_[at_] - '0');
      if (out.magnitude > (UINT64_MAX - d) / 10) return Fail("integer out of range", error);
      out.magnitude = out.magnitude * 10 + d;
      ++at_;
    }
    if (at_ == digits) return Fail("a digit is missing", error);
    if (at_ < s_.size() && (s_[at_] == '.' || s_[at_] == 'e' || s_[at_] == 'E'))
      return Fail("only integers can go into a list", error);
    return true;
  }

  bool Hex4(unsigned& v) {
    if (s_.size() - at_ < 4) return false;
    v = 0;
    for (int i = 0; i < 4; ++i) {
      char c = s_[at_++];
      v <<= 4;
      if (c >= '0' && c <= '9')
        v |= c - '0';
      else if (c >= 'a' && c <= 'f')
        v |= c - 'a' + 10;
      else if (c >= 'A' && c <= 'F')
        v |= c - 'A' + 10;
      else
        return false;
    }
    return true;
  }

  static void Utf8(std::string& out, unsigned cp) {
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }

  bool String(std::string& out, std::string& error) {
    ++at_;
    for (;;) {
      if (at_ >= s_.size()) return Fail("the string is not closed", error);
      char c = s_[at_++];
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20) return Fail("a control byte in a string", error);
      if (c != '\\') {
        out += c;
        continue;
      }
      if (at_ >= s_.size()) return Fail("the string is not closed", error);
      char e = s_[at_++];
      switch (e) {
        case '"':
        case '\\':
        case '/':
          out += e;
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'u': {
          unsigned cp = 0, low = 0;
          if (!Hex4(cp)) return Fail("a bad \\u escape", error);
          if (cp >= 0xD800 && cp < 0xDC00) {
            if (!Literal("\\u") || !Hex4(low) || low < 0xDC00 || low >= 0xE000)
              return Fail("a lone surrogate in a \\u escape", error);
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
          } else if (cp >= 0xDC00 && cp < 0xE000) {
            return Fail("a lone surrogate in a \\u escape", error);
          }
          if (cp == 0) return Fail("a NUL cannot go into a list's text", error);
          Utf8(out, cp);
          break;
        }
        default:
          return Fail("an unknown escape", error);
      }
    }
  }

  const std::string& s_;
  std::size_t at_ = 0;
  std::size_t values_ = 0;
};

}  // namespace

bool ParseJson(const std::string& text, Json& out, std::string& error) {
  out = Json();
  return Parser(text).Document(out, error);
}

std::string JsonQuote(const std::string& text) {
  static const char kHex[] = "0123456789abcdef";
  std::string out = "\"";
  for (char c : text) {
    unsigned char u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (u < 0x20) {
      out += "\\u00";
      out += kHex[u >> 4];
      out += kHex[u & 15];
    } else {
      out += c;  // texts are passed on as the bytes they are
    }
  }
  return out + "\"";
}

}  // namespace vxctl
