// SPDX-License-Identifier: MIT
// What this process holds of the system, for leak tests: open descriptors,
// running threads and resident memory; -1 where the system can't tell.
#ifndef VXBUS_TESTS_SUPPORT_PROCESS_RESOURCES_H_
#define VXBUS_TESTS_SUPPORT_PROCESS_RESOURCES_H_

namespace vxbus {
namespace testing {

#ifdef _WIN32  // counted through /proc elsewhere; Windows tests skip these checks
inline int CountOpenDescriptors() {
  return -1;
}
inline int CountThreads() {
  return -1;
}
inline long long ResidentBytes() {
  return -1;
}
#else
int CountOpenDescriptors();
int CountThreads();
// The bytes of this process's memory that are resident.
long long ResidentBytes();
#endif

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_PROCESS_RESOURCES_H_
