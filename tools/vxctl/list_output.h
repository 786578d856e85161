// SPDX-License-Identifier: MIT
// How vxctl prints a list: in its readable form (list_text.h), or as one line
// of JSON.
#ifndef VXCTL_LIST_OUTPUT_H_
#define VXCTL_LIST_OUTPUT_H_

#include <ostream>
#include <string>

#include "vxbus.h"

namespace vxctl {

// Writes `list` to `out`; with `json` as one JSON object on one line. False
// (with the reason in `error`) when the list cannot be read.
bool PrintList(std::ostream& out, HVXPARAMLIST list, bool json, std::string& error);

// The list as a JSON object, or empty with the reason in `error`.
std::string ListJson(HVXPARAMLIST list, std::string& error);

}  // namespace vxctl

#endif  // VXCTL_LIST_OUTPUT_H_
