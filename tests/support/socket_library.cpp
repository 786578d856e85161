// Linked into every test program: tests open sockets of their own before the
// library is initialised and after it has shut down, and some platforms
// allow that only while their socket library is started. Started once and
// never stopped, it stays up across every VXShutdown of the program.
#include "platform/host.h"

namespace {

const bool socketLibraryStarted = [] {
  vxbus::platform::StartSocketLibrary();
  return true;
}();

}  // namespace
