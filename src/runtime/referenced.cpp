// SPDX-License-Identifier: MIT
#include "vxbus.h"

namespace MTObjects {

MTReferencedTypeBase::MTReferencedTypeBase() = default;
MTReferencedTypeBase::~MTReferencedTypeBase() = default;

void MTReferencedTypeBase::AddRef() {
  refCounter_.value.fetch_add(1, std::memory_order_seq_cst);
}

// Only the release that finds exactly 1 destroys: an unbalanced release drives
// the count negative and leaves the object alive, as does releasing an object
// that never had its first reference.
void MTReferencedTypeBase::Release() {
  if (refCounter_.value.fetch_sub(1, std::memory_order_seq_cst) == 1) delete this;
}

bool MTReferencedTypeBase::IsValid() {
  return IsObjectValid();
}
bool MTReferencedTypeBase::IsValid() const {
  return IsObjectValid();
}

}  // namespace MTObjects
