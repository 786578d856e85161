// SPDX-License-Identifier: MIT
#include "demo_common.h"

#include <cstdio>

#include "vxbus.h"

namespace demo {

namespace {

std::mutex g_outputMutex;
const char* g_logRole = "?";

void LogSink(std::uint32_t, std::uint32_t, const char* text) {
  Say(g_logRole, std::string("vxbus reports: ") + text);
}

}  // namespace

void Say(const char* role, const std::string& text) {
  std::lock_guard<std::mutex> lock(g_outputMutex);
  std::printf("[%s] %s\n", role, text.c_str());
  std::fflush(stdout);
}

void ShowLibraryProblems(const char* role) {
  g_logRole = role;
  // 1, 2 and 4: a listener or a session could not work, or a peer failed the
  // handshake. 8, the routine messages, stays off.
  VXSetLogLevel(1 | 2 | 4, 0, LogSink);
}

void Latch::Set() {
  std::lock_guard<std::mutex> lock(mutex_);
  set_ = true;
  changed_.notify_all();
}

bool Latch::WaitFor(std::chrono::seconds limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, limit, [this] { return set_; });
}

}  // namespace demo
