// SPDX-License-Identifier: MIT
// The process's context, for tests that look at its state or shorten it.
#ifndef VXBUS_TESTS_SUPPORT_CONTEXT_H_
#define VXBUS_TESTS_SUPPORT_CONTEXT_H_

#include "process/process_context.h"
#include "session/session.h"

namespace vxbus {
namespace testing {

inline ProcessContext& Context() {
  return ProcessContext::Get();
}

// A session set up as the library sets up its own, without threads.
inline Session* NewSession() {
  return new Session(Context().SessionEnvironmentNow());
}

}  // namespace testing
}  // namespace vxbus

#endif  // VXBUS_TESTS_SUPPORT_CONTEXT_H_
