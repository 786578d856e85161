// SPDX-License-Identifier: MIT
// The version of the library as it was built, from the project's one version.
#include "vxbus.h"

const char* VXGetVersion(void) {
  return VXBUS_VERSION_STRING;
}
