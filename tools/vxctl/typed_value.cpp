// SPDX-License-Identifier: MIT
#include "typed_value.h"

#include "vxbus.h"

namespace vxctl {
namespace {

// The stored type for a type name, PT_UNKNOWN for none; `json` gives -1.
int TypeOf(const std::string& name) {
  if (name == "int32" || name == "int") return PT_INT32;
  if (name == "int64") return PT_INT64;
  if (name == "string" || name == "str") return PT_STRING;
  if (name == "hex" || name == "bin") return PT_BINARY;
  if (name == "list") return PT_PARAMHANDLE;
  if (name == "json") return -1;
  return PT_UNKNOWN;
}

bool Fail(std::string& error, const std::string& why) {
  error = why;
  return false;
}

// Two's complement into `bits` bits, refusing what does not fit either as a
// signed or as an unsigned number.
bool Integer(bool negative, std::uint64_t magnitude, int bits, std::uint64_t& out,
             std::string& error) {
  const std::uint64_t unsignedMax = bits == 32 ? 0xFFFFFFFFull : UINT64_MAX;
  const std::uint64_t negativeMax = std::uint64_t{1} << (bits - 1);
  if (negative ? magnitude > negativeMax : magnitude > unsignedMax)
    return Fail(error, "out of range for a " + std::to_string(bits) + "-bit integer");
  out = negative ? (0 - magnitude) & unsignedMax : magnitude;
  return true;
}

// The narrowest integer type that holds the number.
int IntegerType(bool negative, std::uint64_t magnitude) {
  return (negative ? magnitude <= 0x80000000ull : magnitude <= 0xFFFFFFFFull) ? PT_INT32 : PT_INT64;
}

bool ParseInteger(const std::string& text, bool& negative, std::uint64_t& magnitude) {
  Json j;
  std::string ignored;
  if (text.empty() || text.find_first_not_of("-0123456789") != std::string::npos) return false;
  if (!ParseJson(text, j, ignored) || j.kind != Json::kInteger) return false;
  negative = j.negative;
  magnitude = j.magnitude;
  return true;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool FromHex(const std::string& hex, std::string& out, std::string& error) {
  if (hex.size() % 2) return Fail(error, "an odd number of hex digits");
  out.clear();
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    int hi = HexDigit(hex[i]), lo = HexDigit(hex[i + 1]);
    if (hi < 0 || lo < 0) return Fail(error, "'" + hex.substr(i, 2) + "' is not a hex byte");
    out += static_cast<char>(hi * 16 + lo);
  }
  return true;
}

std::string ToHex(const std::string& bytes) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += kHex[c >> 4];
    out += kHex[c & 15];
  }
  return out;
}

bool NoNul(const std::string& text, std::string& error) {
  return text.find('\0') == std::string::npos || Fail(error, "a text cannot hold a NUL byte");
}

// One scalar element of type `type` from JSON.
bool ScalarFromJson(int type, const Json& j, int depth, Value& v, std::string& error) {
  v.type = type;
  switch (type) {
    case PT_INT32:
    case PT_INT64:
      if (j.kind != Json::kInteger) return Fail(error, "an integer is expected");
      return Integer(j.negative, j.magnitude, type == PT_INT32 ? 32 : 64, v.number, error);
    case PT_STRING:
      if (j.kind != Json::kString) return Fail(error, "a string is expected");
      v.bytes = j.text;
      return NoNul(v.bytes, error);
    case PT_BINARY:
      if (j.kind != Json::kString) return Fail(error, "a string of hex digits is expected");
      return FromHex(j.text, v.bytes, error);
    case PT_PARAMHANDLE:
      if (j.kind == Json::kNull) return true;
      if (j.kind != Json::kObject) return Fail(error, "an object or null is expected");
      if (depth + 1 > kMaxDepth) return Fail(error, "lists nested too deep");
      v.list = std::make_shared<List>();
      return ListFromJson(j, depth + 1, *v.list, error);
  }
  return Fail(error, "no such type");
}

// The type a JSON value takes when none is given; PT_UNKNOWN when it has none.
int InferredType(const Json& j) {
  switch (j.kind) {
    case Json::kInteger:
      return IntegerType(j.negative, j.magnitude);
    case Json::kString:
      return PT_STRING;
    case Json::kObject:
    case Json::kNull:
      return PT_PARAMHANDLE;
    default:
      return PT_UNKNOWN;
  }
}

bool ArrayFromJson(int itemType, const Json& j, int depth, Value& v, std::string& error) {
  if (j.kind != Json::kArray) return Fail(error, "an array is expected");
  v.type = PT_ARRAY | itemType;
  for (std::size_t i = 0; i < j.items.size(); ++i) {
    Value item;
    if (!ScalarFromJson(itemType, j.items[i], depth, item, error)) {
      error = "element " + std::to_string(i) + ": " + error;
      return false;
    }
    if (itemType == PT_INT32 || itemType == PT_INT64)
      v.numbers.push_back(item.number);
    else if (itemType == PT_PARAMHANDLE)
      v.lists.push_back(item.list);
    else
      v.items.push_back(item.bytes);
  }
  return true;
}

bool InferFromJson(const Json& j, int depth, Value& v, std::string& error) {
  if (j.kind == Json::kBool) return Fail(error, "true and false have no type here: use 1 or 0");
  if (j.kind != Json::kArray) return ScalarFromJson(InferredType(j), j, depth, v, error);
  if (j.items.empty()) return Fail(error, "an empty array needs a type, as in name:int32[]");
  int itemType = PT_UNKNOWN;
  for (const Json& item : j.items) {
    int t = InferredType(item);
    if (t == PT_UNKNOWN) return Fail(error, "an array can hold integers, strings or objects");
    if (itemType == PT_UNKNOWN || (itemType == PT_INT32 && t == PT_INT64))
      itemType = t;
    else if (!(itemType == PT_INT64 && t == PT_INT32) && t != itemType)
      return Fail(error, "an array mixes types; give one, as in name:string[]");
  }
  return ArrayFromJson(itemType, j, depth, v, error);
}

std::string Join(const std::vector<std::string>& parts) {
  std::string out;
  for (std::size_t i = 0; i < parts.size(); ++i)
    out += (i ? "," : "") + parts[i];
  return out;
}

// The JSON of a value, and the type suffix its key needs ("" for none).
std::string ValueToJson(const Value& v, std::string& suffix) {
  std::vector<std::string> parts;
  switch (v.type) {
    case PT_STRING:
      return JsonQuote(v.bytes);
    case PT_INT32:
      return std::to_string(v.number);
    case PT_INT64:
      suffix = "int64";
      return std::to_string(v.number);
    case PT_BINARY:
      suffix = "hex";
      return JsonQuote(ToHex(v.bytes));
    case PT_PARAMHANDLE:
      if (!v.list) suffix = "list";
      return v.list ? ListToJson(*v.list) : "null";
    case PT_ARRAY | PT_STRING:
      for (const auto& s : v.items)
        parts.push_back(JsonQuote(s));
      suffix = parts.empty() ? "string[]" : "";
      break;
    case PT_ARRAY | PT_BINARY:
      for (const auto& b : v.items)
        parts.push_back(JsonQuote(ToHex(b)));
      suffix = "hex[]";
      break;
    case PT_ARRAY | PT_INT32:
    case PT_ARRAY | PT_INT64:
      for (std::uint64_t n : v.numbers)
        parts.push_back(std::to_string(n));
      suffix = v.type == (PT_ARRAY | PT_INT64) ? "int64[]" : parts.empty() ? "int32[]" : "";
      break;
    case PT_ARRAY | PT_PARAMHANDLE:
      for (const auto& l : v.lists)
        parts.push_back(l ? ListToJson(*l) : "null");
      suffix = parts.empty() ? "list[]" : "";
      break;
  }
  return "[" + Join(parts) + "]";
}

}  // namespace

std::string TypeNameOf(int type) {
  switch (type & ~PT_ARRAY) {
    case PT_STRING:
      return "string";
    case PT_INT32:
      return "int32";
    case PT_INT64:
      return "int64";
    case PT_BINARY:
      return "hex";
    default:
      return "list";
  }
}

TypedKey SplitKey(const std::string& key) {
  TypedKey out;
  out.name = key;
  std::size_t colon = key.rfind(':');
  if (colon == std::string::npos) return out;
  std::string type = key.substr(colon + 1);
  bool array = type.size() > 2 && type.compare(type.size() - 2, 2, "[]") == 0;
  if (array) type.resize(type.size() - 2);
  int t = TypeOf(type);
  if (t == PT_UNKNOWN || (array && t == -1)) return out;
  out.name = key.substr(0, colon);
  out.type = type;
  out.array = array;
  return out;
}

bool SplitTypedKey(const std::string& key, TypedKey& out, std::string& error) {
  out = SplitKey(key);
  const std::size_t colon = key.rfind(':');
  if (colon == std::string::npos || !out.type.empty()) return true;
  return Fail(error, "unknown type '" + key.substr(colon + 1) +
                         "': types are int32, int64, string, hex, bin, list and json, and their "
                         "arrays such as int32[] (json has none); a name with a ':' must give "
                         "its type");
}

bool ValueFromText(const TypedKey& key, const std::string& text, Value& out, std::string& error,
                   std::size_t readLimit) {
  const int type = key.type.empty() ? 0 : TypeOf(key.type);
  if (key.array || type == -1 || type == PT_PARAMHANDLE) {
    Json j;
    if (!ParseJson(text, j, error)) return false;
    return ValueFromJson(key, j, 0, out, error);
  }
  bool negative = false;
  std::uint64_t magnitude = 0;
  out.type = type;
  switch (type) {
    case 0:
      if (!ParseInteger(text, negative, magnitude)) {
        out.type = PT_STRING;
        out.bytes = text;
        return true;
      }
      out.type = IntegerType(negative, magnitude);
      return Integer(negative, magnitude, out.type == PT_INT32 ? 32 : 64, out.number, error);
    case PT_INT32:
    case PT_INT64:
      if (!ParseInteger(text, negative, magnitude))
        return Fail(error, "'" + text + "' is not an integer");
      return Integer(negative, magnitude, type == PT_INT32 ? 32 : 64, out.number, error);
    case PT_STRING:
      out.bytes = text;
      return true;
    default:  // PT_BINARY
      if (key.type == "hex") return FromHex(text, out.bytes, error);
      if (!text.empty() && text[0] == '@')
        return ReadAll(text.substr(1), readLimit, out.bytes, error);
      out.bytes = text;
      return true;
  }
}

bool ValueFromJson(const TypedKey& key, const Json& json, int depth, Value& out,
                   std::string& error) {
  const int type = key.type.empty() ? -1 : TypeOf(key.type);
  if (type == -1) return InferFromJson(json, depth, out, error);
  if (key.array) return ArrayFromJson(type, json, depth, out, error);
  return ScalarFromJson(type, json, depth, out, error);
}

bool ListFromJson(const Json& object, int depth, List& out, std::string& error) {
  if (object.kind != Json::kObject) return Fail(error, "a list is written as a JSON object");
  std::vector<std::pair<std::string, Value>> values;
  values.reserve(object.members.size());
  for (const auto& member : object.members) {
    TypedKey key;
    Value v;
    std::string why;
    if (!SplitTypedKey(member.first, key, why) || !(why = CheckName(key.name)).empty() ||
        !ValueFromJson(key, member.second, depth, v, why)) {
      error = "'" + member.first + "': " + why;
      return false;
    }
    values.emplace_back(std::move(key.name), std::move(v));
  }
  out.SetAll(std::move(values));
  return true;
}

std::string ListToJson(const List& list) {
  std::vector<std::string> members;
  for (const auto& p : list.params) {
    std::string suffix;
    std::string json = ValueToJson(p.second, suffix);
    // A name with a ':' of its own always carries its type, so that it splits back.
    if (suffix.empty() && p.first.find(':') != std::string::npos)
      suffix = TypeNameOf(p.second.type) + (p.second.type & PT_ARRAY ? "[]" : "");
    members.push_back(JsonQuote(suffix.empty() ? p.first : p.first + ":" + suffix) + ":" + json);
  }
  return "{" + Join(members) + "}";
}

}  // namespace vxctl
