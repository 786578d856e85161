// SPDX-License-Identifier: MIT
// Short English texts for the library's return codes, for people to read.
#include "vxbus.h"

const char* VXErrorText(std::int32_t code) {
  switch (code) {
    case VX_SUCCESS:
      return "success";
    case VX_ERROR_FAILED:
      return "failed: no connection could be made, a list to change was null, the host name "
             "could not be learned, or a secret was longer than 256 bytes";
    case VX_ERROR_NO_SLOT:
      return "no slot of that number is registered";
    case VX_ERROR_NO_SIGNAL:
      return "no signal of that name is registered";
    case VX_ERROR_NO_APPLICATION:
      return "no application of that name is connected";
    case VX_ERROR_NAME_IN_USE:
      return "name in use: from a connect, the peer is connected already, or it hung up "
             "after our answer (a wrong secret, or our name is in use there); from an "
             "initialise, the library runs already under another name";
    case VX_ERROR_QUEUE_FULL:
      return "the peer's send queue stayed full for the time limit; nothing was sent";
    default:
      return "unknown return code";
  }
}
