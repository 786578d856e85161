// SPDX-License-Identifier: MIT
// The bridge's two outputs: one line per event on standard error
// ("vxbridge: ..."), and the lines that tell what it bridges on standard
// output. Both may be called from any thread; lines never interleave.
#ifndef VXBRIDGE_BRIDGE_LOG_H_
#define VXBRIDGE_BRIDGE_LOG_H_

#include <string>

namespace vxbridge {

void LogLine(const std::string& text);
void SayLine(const std::string& text);

}  // namespace vxbridge

#endif  // VXBRIDGE_BRIDGE_LOG_H_
