// SPDX-License-Identifier: MIT
#include "transport/reader_spin.h"

#include "runtime/brief_spin.h"

namespace vxbus {

namespace {

// A look shorter than this costs more than it can catch.
constexpr std::chrono::microseconds kShortestLook{2};

}  // namespace

ReaderSpin::ReaderSpin() : ReaderSpin(BriefSpinBudget()) {}

ReaderSpin::ReaderSpin(std::chrono::microseconds full) : full_(full), look_(full) {}

void ReaderSpin::Slept(Duration slept) {
  if (slept <= full_) {
    look_ = full_;
    return;
  }
  look_ /= 2;
  if (look_ < kShortestLook) look_ = std::chrono::microseconds(0);
}

}  // namespace vxbus
