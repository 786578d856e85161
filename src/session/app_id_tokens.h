// SPDX-License-Identifier: MIT
// Splitting an appID ("host:port/name") into its pieces.
#ifndef VXBUS_SESSION_APP_ID_TOKENS_H_
#define VXBUS_SESSION_APP_ID_TOKENS_H_

#include <cstdint>
#include <string>

namespace vxbus {

// Hands out tokens one after the other. A token starts at the first
// character that is not its delimiter and ends before the next delimiter or
// at the end; the delimiter that ended it is passed over.
class AppIdTokenizer {
 public:
  explicit AppIdTokenizer(const std::string& text) : text_(text) {}
  // False when no token is left.
  bool Next(char delimiter, std::string& token);

 private:
  std::string text_;
  std::size_t pos_ = 0;
};

// The three pieces that the listeners are given.
struct AppIdParts {
  std::string host;
  bool hasHost = false;
  std::string port;
  bool hasPort = false;
  std::string name;
  bool hasName = false;
  std::int32_t PortNumber() const;  // 0 when the port is missing
};
AppIdParts SplitAppId(const std::string& appId);

}  // namespace vxbus

#endif  // VXBUS_SESSION_APP_ID_TOKENS_H_
