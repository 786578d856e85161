// SPDX-License-Identifier: MIT
#include "session/app_id_tokens.h"

#include <cstdlib>

namespace vxbus {

bool AppIdTokenizer::Next(char delimiter, std::string& token) {
  while (pos_ < text_.size() && text_[pos_] == delimiter)
    ++pos_;
  if (pos_ >= text_.size()) return false;
  std::size_t end = text_.find(delimiter, pos_);
  if (end == std::string::npos) end = text_.size();
  token.assign(text_, pos_, end - pos_);
  pos_ = end < text_.size() ? end + 1 : end;
  return true;
}

std::int32_t AppIdParts::PortNumber() const {
  return hasPort ? static_cast<std::int32_t>(std::strtol(port.c_str(), nullptr, 10)) : 0;
}

AppIdParts SplitAppId(const std::string& appId) {
  AppIdParts parts;
  AppIdTokenizer tokens(appId);
  parts.hasHost = tokens.Next(':', parts.host);
  parts.hasPort = parts.hasHost && tokens.Next('/', parts.port);
  parts.hasName = parts.hasPort && tokens.Next('/', parts.name);
  return parts;
}

}  // namespace vxbus
