// SPDX-License-Identifier: MIT
#include "list_model.h"

#include <algorithm>
#include <unordered_map>

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

void List::SetAll(std::vector<std::pair<std::string, Value>> values) {
  std::unordered_map<std::string, std::size_t> last;  // a name's last place in `values`
  last.reserve(values.size());
  for (std::size_t i = 0; i < values.size(); ++i)
    last[values[i].first] = i;
  params.erase(std::remove_if(params.begin(), params.end(),
                              [&](const auto& p) { return last.count(p.first) != 0; }),
               params.end());
  for (std::size_t i = 0; i < values.size(); ++i)
    if (last.find(values[i].first)->second == i) params.push_back(std::move(values[i]));
}

std::string CheckName(const std::string& name) {
  if (name.size() > kMaxNameLength)
    return "name longer than " + std::to_string(kMaxNameLength) + " bytes";
  if (name.find('\0') != std::string::npos) return "name holds a NUL byte";
  return "";
}

}  // namespace vxctl
