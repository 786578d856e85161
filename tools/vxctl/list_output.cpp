// SPDX-License-Identifier: MIT
#include "list_output.h"

#include "list_bridge.h"
#include "list_text.h"
#include "typed_value.h"

namespace vxctl {

std::string ListJson(HVXPARAMLIST list, std::string& error) {
  ListPtr model = FromHandle(list, error);
  return model ? ListToJson(*model) : "";
}

bool PrintList(std::ostream& out, HVXPARAMLIST list, bool json, std::string& error) {
  if (json) {
    std::string text = ListJson(list, error);
    if (text.empty()) return false;
    out << text << std::endl;
    return true;
  }
  ListPtr model = FromHandle(list, error);
  if (!model) return false;
  out << ListToText(*model);
  out.flush();
  return true;
}

}  // namespace vxctl
