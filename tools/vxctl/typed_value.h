// SPDX-License-Identifier: MIT
// The one syntax by which vxctl names a parameter and its type, shared by
// command-line arguments and JSON members: "name" lets the value pick its type
// (integer, text, object, array), "name:TYPE" says it. TYPE is one of
//   int32 (int), int64, string (str), hex, bin, list, json
// or int32[], int64[], string[], hex[], bin[], list[] for arrays. hex is a
// binary written as hex digits; bin on the command line takes "@FILE" for a
// file's bytes or the text itself, and in JSON is the same as hex. json (the
// command line only) reads the value as JSON and infers its type.
#ifndef VXCTL_TYPED_VALUE_H_
#define VXCTL_TYPED_VALUE_H_

#include <string>

#include "json.h"
#include "list_model.h"
#include "read_all.h"

namespace vxctl {

struct TypedKey {
  std::string name;
  std::string type;  // empty: inferred from the value
  bool array = false;
};

// Splits at the last ':' when what follows is a type name; otherwise the
// whole key is the name.
TypedKey SplitKey(const std::string& key);

// SplitKey for what users and scripts hand in: a key whose part after its
// last ':' is no type name is refused, naming that part, rather than taken
// whole as the name, so that a mistyped type ("id:int33") is never sent as
// a name. So a name with a ':' of its own must give its type, as ListToJson
// writes it.
bool SplitTypedKey(const std::string& key, TypedKey& out, std::string& error);

// A value from command-line text; "bin=@FILE" reads at most `readLimit`
// bytes of FILE. False with the reason in `error`.
bool ValueFromText(const TypedKey& key, const std::string& text, Value& out, std::string& error,
                   std::size_t readLimit = kDefaultMaxReadSize);

// A value from JSON; `depth` is the nesting of the list that receives it.
bool ValueFromJson(const TypedKey& key, const Json& json, int depth, Value& out,
                   std::string& error);

// Adds the members of a JSON object to `out`.
bool ListFromJson(const Json& object, int depth, List& out, std::string& error);

// `list` as a JSON object, with a type on each key whose value would not
// infer back to the same type.
std::string ListToJson(const List& list);

// The name vxctl gives a value's type in its keys ("string", "int32", "int64",
// "hex", "list"), without the array mark.
std::string TypeNameOf(int type);

}  // namespace vxctl

#endif  // VXCTL_TYPED_VALUE_H_
