// SPDX-License-Identifier: MIT
// vxctl's readable form of a list, one line per value:
//   id:int32 = 7                  numbers in decimal, as unsigned values
//   title:string = "hello"        texts quoted, control bytes escaped
//   raw:hex = 00ff0a              bytes as two hex digits each
//   sub:list                      a nested list: its values follow, indented
//     s:string = "hi"
//   none:list = null              a handle that holds no list
//   words:string[] (2)            an array: its count, then one line per element
//     [0] = "a"
//     [1] = ""
//   lists:list[] (1)
//     [0]
//       x:int32 = 1
// Names are printed as they are unless they hold a control byte or a space,
// which quotes them, so that a peer's bytes cannot steer the terminal.
#ifndef VXCTL_LIST_TEXT_H_
#define VXCTL_LIST_TEXT_H_

#include <string>

#include "list_model.h"

namespace vxctl {

// `list` in the form above, each line ending in a newline; "" for no values.
std::string ListToText(const List& list);

// `text` quoted, with '"', '\' and control bytes (below 0x20, and 0x7f)
// escaped as in JSON.
std::string QuoteText(const std::string& text);

}  // namespace vxctl

#endif  // VXCTL_LIST_TEXT_H_
