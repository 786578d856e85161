#include <dirent.h>

#include "support/process_resources.h"

namespace vxbus {
namespace testing {

// Entries of a folder of /proc, without "." and ".."; -1 when it is missing.
static int CountEntries(const char* folder) {
  DIR* dir = opendir(folder);
  if (dir == nullptr) return -1;
  int count = 0;
  while (dirent* entry = readdir(dir))
    if (entry->d_name[0] != '.') ++count;
  closedir(dir);
  return count;
}

// The folder being read is open while it is counted, and is left out.
int CountOpenDescriptors() {
  int count = CountEntries("/proc/self/fd");
  return count < 0 ? -1 : count - 1;
}

int CountThreads() {
  return CountEntries("/proc/self/task");
}

}  // namespace testing
}  // namespace vxbus
