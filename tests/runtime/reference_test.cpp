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

TEST(ReferenceCount, StartsAtZeroAndOneReleaseDestroys) {
  int destroyed = 0;
  auto* p = new Probe(&destroyed);
  EXPECT_EQ(ReferenceAccess::Count(p), 0);
  ReferenceAccess::AddRef(p);
  ReferenceAccess::Release(p);
  EXPECT_EQ(destroyed, 1);
}

TEST(ReferenceCount, UnbalancedReleaseLeavesTheObjectAlive) {
  int destroyed = 0;
  auto* p = new Probe(&destroyed);
  ReferenceAccess::Release(p);  // from 0 to -1: no destruction
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(ReferenceAccess::Count(p), -1);
  ReferenceAccess::AddRef(p);
  ReferenceAccess::AddRef(p);
  ReferenceAccess::Release(p);
  EXPECT_EQ(destroyed, 1);
}

TEST(ReferencedPtr, SelfAssignmentKeepsTheOnlyOwner) {
  int destroyed = 0;
  MTReferencedPtr<Probe> a(new Probe(&destroyed));
  MTReferencedPtr<Probe> b(a);
  b = nullptr;
  a = a;
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(ReferenceAccess::Count(a.get()), 1);
  MTReferencedPtr<Probe> c(a.get());
  a = c;  // same object through another pointer
  EXPECT_EQ(ReferenceAccess::Count(a.get()), 2);
}

TEST(ReferencedPtr, MoveCarriesTheReferenceWithoutCountTraffic) {
  int destroyed = 0;
  MTReferencedPtr<Probe> a(new Probe(&destroyed));
  MTReferencedPtr<Probe> b(std::move(a));
  EXPECT_EQ(a.get(), nullptr);
  EXPECT_EQ(ReferenceAccess::Count(b.get()), 1);
  b = MTReferencedPtr<Probe>();
  EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace vxbus
