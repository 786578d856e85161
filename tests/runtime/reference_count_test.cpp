// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "runtime/referenced_ptr.h"

namespace vxbus {
namespace {

using MTObjects::MTReferencedPtr;
using MTObjects::ReferenceAccess;

class Probe : public MTObjects::MTReferencedTypeBase {
 public:
  explicit Probe(int* destroyed) : destroyed_(destroyed) {}
  ~Probe() override { ++*destroyed_; }

 protected:
  bool IsObjectValid() const override { return true; }

 private:
  int* destroyed_;
};

// The count starts at 0; a release below 1 leaves the object alive. The
// pointer keeps the count right through self-assignment and moves.
TEST(ReferenceCount, OnlyTheLastBalancedReleaseDestroys) {
  int destroyed = 0;
  auto* p = new Probe(&destroyed);
  EXPECT_EQ(ReferenceAccess::Count(p), 0);
  ReferenceAccess::Release(p);
  EXPECT_EQ(ReferenceAccess::Count(p), -1);
  ReferenceAccess::AddRef(p);
  ReferenceAccess::AddRef(p);
  EXPECT_EQ(destroyed, 0);
  ReferenceAccess::Release(p);
  EXPECT_EQ(destroyed, 1);

  MTReferencedPtr<Probe> a(new Probe(&destroyed));
  a = a;
  EXPECT_EQ(ReferenceAccess::Count(a.get()), 1);
  MTReferencedPtr<Probe> c(a.get());
  a = c;  // the same object through another pointer
  EXPECT_EQ(ReferenceAccess::Count(a.get()), 2);
  c = nullptr;
  MTReferencedPtr<Probe> b(std::move(a));
  EXPECT_EQ(a.get(), nullptr);
  EXPECT_EQ(ReferenceAccess::Count(b.get()), 1);
  EXPECT_EQ(destroyed, 1);
  b = MTReferencedPtr<Probe>();
  EXPECT_EQ(destroyed, 2);
}

}  // namespace
}  // namespace vxbus
