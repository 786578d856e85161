// SPDX-License-Identifier: MIT
// The smallest program on an installed vxbus: start the library, build a list
// with a nested list, read it back, and stop.
#include <cstdio>

#include "vxbus.h"

int main() {
  if (VXInitialize("consumer", 0, nullptr) != VX_SUCCESS) {
    std::fputs("consumer: the library did not start\n", stderr);
    return 1;
  }
  HVXPARAMLIST order = VXCreateParamList();
  HVXPARAMLIST line = VXCreateParamList();
  VXSetStringValue(line, "item", "tea");
  VXSetInt32Value(order, "id", 4711);
  VXSetHandleValue(order, "line", line);
  VXCloseHandle(line);

  HVXPARAMLIST child = VXGetHandleValue(order, "line");
  std::printf("consumer: order %u with %s, %u parameters\n", VXGetInt32Value(order, "id"),
              VXGetStringValue(child, "item"), VXGetParamCount(order));
  VXCloseHandle(child);
  VXCloseHandle(order);
  VXShutdown();
  return 0;
}
