// What this process holds of the system, for leak tests: open descriptors
// and running threads.
#ifndef VXBUS_TESTS_SUPPORT_PROCESS_RESOURCES_H_
#define VXBUS_TESTS_SUPPORT_PROCESS_RESOURCES_H_

namespace vxbus {
namespace testing {

// Open descriptors of this process, or -1 where the system can't tell.
int CountOpenDescriptors();
// Threads of this process, or -1 where the system can't tell.
int CountThreads();

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_PROCESS_RESOURCES_H_
