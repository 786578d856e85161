// SPDX-License-Identifier: MIT
// The list that VXGetBusInfo describes (vxbus.h), as a table for people:
// the application, its slots, its signals with their subscribers, one row
// per session and the object counters. The list comes from a peer, so every
// field may be missing or of another type: such a field shows as "?", and
// a peer's texts are quoted when they hold control bytes.
#ifndef VXCTL_BUS_INFO_TABLE_H_
#define VXCTL_BUS_INFO_TABLE_H_

#include <string>

#include "list_model.h"

namespace vxctl {

// The table, each line ending in a newline.
std::string BusInfoTable(const List& info);

// A duration for people: "850 ms", "3.2 s", "4 min 7 s", "2 h 5 min".
std::string Duration(std::uint64_t milliseconds);

}  // namespace vxctl

#endif  // VXCTL_BUS_INFO_TABLE_H_
