// SPDX-License-Identifier: MIT
#include <dirent.h>
#include <unistd.h>

#include <cstdio>

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

// The second field of statm counts resident pages.
long long ResidentBytes() {
  std::FILE* statm = std::fopen("/proc/self/statm", "r");
  if (statm == nullptr) return -1;
  long long size = 0, resident = -1;
  const bool read = std::fscanf(statm, "%lld %lld", &size, &resident) == 2;
  std::fclose(statm);
  return read ? resident * sysconf(_SC_PAGESIZE) : -1;
}

}  // namespace testing
}  // namespace vxbus
