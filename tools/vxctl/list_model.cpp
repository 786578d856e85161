#include "list_model.h"

namespace vxctl {

void List::Set(const std::string& name, Value value) {
  for (auto it = params.begin(); it != params.end(); ++it) {
    if (it->first == name) {
      params.erase(it);
      break;
    }
  }
  params.emplace_back(name, std::move(value));
}

std::string CheckName(const std::string& name) {
  if (name.size() > kMaxNameLength)
    return "name longer than " + std::to_string(kMaxNameLength) + " bytes";
  if (name.find('\0') != std::string::npos) return "name holds a NUL byte";
  return "";
}

}  // namespace vxctl
