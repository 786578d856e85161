// SPDX-License-Identifier: MIT
// How a list travels on NATS: by default its stream form, the bytes the bus
// itself sends in a frame, untouched; with --json vxctl's JSON object, for
// clients in other languages. Headers name the form and the vxbus version.
#ifndef VXBRIDGE_PAYLOAD_CODEC_H_
#define VXBRIDGE_PAYLOAD_CODEC_H_

#include <cstddef>
#include <string>

#include "list_model.h"
#include "vxbus.h"

namespace vxbridge {

constexpr const char* kFormatHeader = "Vxbus-Format";
constexpr const char* kVersionHeader = "Vxbus-Version";
// Set on a reply that carries no list because the local call failed.
constexpr const char* kErrorHeader = "Vxbus-Error";
constexpr const char* kStreamFormat = "vxbus-stream";
constexpr const char* kJsonFormat = "json";

class PayloadCodec {
 public:
  explicit PayloadCodec(bool json) : json_(json) {}

  // The value of kFormatHeader on what this codec writes.
  const char* Format() const { return json_ ? kJsonFormat : kStreamFormat; }

  // The payload that carries `list` (borrowed). False with the reason in
  // `error` when the list cannot be read (only the JSON form reads it).
  bool Encode(HVXPARAMLIST list, std::string& payload, std::string& error) const;

  // The list in a payload that may come from anyone: sizes, counts and
  // nesting are checked before anything is built, and more than
  // kMaxPayloadBytes is refused. An empty payload is an empty list. `format`
  // is the message's kFormatHeader, or null when it has none (then this
  // codec's form is assumed). False with the reason in `error` when the
  // payload is not one list in this codec's form.
  bool Decode(const char* data, std::size_t size, const char* format, vxctl::List& out,
              std::string& error) const;

 private:
  bool json_;
};

}  // namespace vxbridge

#endif  // VXBRIDGE_PAYLOAD_CODEC_H_
