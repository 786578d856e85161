// SPDX-License-Identifier: MIT
#include "payload_codec.h"

#include <cstring>

#include "bridge_options.h"
#include "json.h"
#include "list_bridge.h"
#include "stream_file.h"
#include "typed_value.h"

namespace vxbridge {

bool PayloadCodec::Encode(HVXPARAMLIST list, std::string& payload, std::string& error) const {
  if (!json_) {
    payload = vxctl::SerializeStream(list);
    return true;
  }
  vxctl::ListPtr model = vxctl::FromHandle(list, error);
  if (!model) return false;
  payload = vxctl::ListToJson(*model);
  return true;
}

bool PayloadCodec::Decode(const char* data, std::size_t size, const char* format, vxctl::List& list,
                          std::string& error) const {
  if (format && std::strcmp(format, Format()) != 0) {
    error = std::string("the payload is in the form '") + format + "', this bridge takes '" +
            Format() + "'";
    return false;
  }
  if (size > kMaxPayloadBytes) {
    error = "a payload of " + std::to_string(size) + " bytes is larger than " +
            std::to_string(kMaxPayloadBytes);
    return false;
  }
  list = vxctl::List();
  if (size == 0) return true;
  const std::string bytes(data, size);
  if (json_) {
    vxctl::Json json;
    if (!vxctl::ParseJson(bytes, json, error)) return false;
    if (json.kind != vxctl::Json::kObject) {
      error = "the JSON payload is not an object";
      return false;
    }
    if (!vxctl::ListFromJson(json, 0, list, error)) return false;
  } else {
    vxctl::ListPtr parsed = vxctl::ParseStream(bytes, error);
    if (!parsed) return false;
    list = std::move(*parsed);
  }
  return true;
}

}  // namespace vxbridge
