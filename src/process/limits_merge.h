// SPDX-License-Identifier: MIT
// How the limits record that a first initialise is given meets the defaults.
#ifndef VXBUS_PROCESS_LIMITS_MERGE_H_
#define VXBUS_PROCESS_LIMITS_MERGE_H_

#include "vxbus.h"

namespace vxbus {

// The record in force after a first initialise. A `given` record that is null,
// or whose size word differs from the defaults', is ignored whole: the
// defaults stay, secret block included. Otherwise each non-zero field of
// `given` replaces the default and a zero one keeps it, and the secret block
// of `given` is taken as it is, also when it is all zero. Pure; any thread.
VXLimits MergeLimits(const VXLimits& defaults, const VXLimits* given);

}  // namespace vxbus

#endif  // VXBUS_PROCESS_LIMITS_MERGE_H_
