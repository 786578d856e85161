// SPDX-License-Identifier: MIT
// Linked into every test program: its own sockets may open before VXInitialize and
// after VXShutdown, so the socket library is started once here and never stopped.
#include "platform/host.h"

namespace {

const bool socketLibraryStarted = [] {
  vxbus::platform::StartSocketLibrary();
  return true;
}();

}  // namespace
