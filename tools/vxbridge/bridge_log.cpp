// SPDX-License-Identifier: MIT
#include "bridge_log.h"

#include <cstdio>
#include <mutex>

namespace vxbridge {
namespace {
std::mutex g_outputMutex;
}

void LogLine(const std::string& text) {
  std::lock_guard<std::mutex> lock(g_outputMutex);
  std::fprintf(stderr, "vxbridge: %s\n", text.c_str());
  std::fflush(stderr);
}

void SayLine(const std::string& text) {
  std::lock_guard<std::mutex> lock(g_outputMutex);
  std::fprintf(stdout, "%s\n", text.c_str());
  std::fflush(stdout);
}

}  // namespace vxbridge
