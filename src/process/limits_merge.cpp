// SPDX-License-Identifier: MIT
#include "process/limits_merge.h"

#include <cstring>

namespace vxbus {
namespace {

// A field that is added to the record must be added below as well.
static_assert(sizeof(VXLimits) == 4 * 9 + 256, "merge each field of VXLimits below");

template <class Field>
void TakeIfSet(Field& inForce, Field given) {
  if (given != 0) inForce = given;
}

}  // namespace

VXLimits MergeLimits(const VXLimits& defaults, const VXLimits* given) {
  VXLimits merged = defaults;
  if (given == nullptr || given->size != defaults.size) return merged;
  const VXLimits::Values& from = given->limits;
  VXLimits::Values& to = merged.limits;
  TakeIfSet(to.MAX_CONNECTIONS, from.MAX_CONNECTIONS);
  TakeIfSet(to.RESERVED_A, from.RESERVED_A);
  TakeIfSet(to.MAX_READ_SIZE, from.MAX_READ_SIZE);
  TakeIfSet(to.RESERVED_B, from.RESERVED_B);
  TakeIfSet(to.RESERVED_C, from.RESERVED_C);
  TakeIfSet(to.RESERVED_D, from.RESERVED_D);
  TakeIfSet(to.RESERVED_E, from.RESERVED_E);
  TakeIfSet(to.IO_TIMEOUT_MS, from.IO_TIMEOUT_MS);
  std::memcpy(to.authBlock, from.authBlock, sizeof to.authBlock);
  return merged;
}

}  // namespace vxbus
