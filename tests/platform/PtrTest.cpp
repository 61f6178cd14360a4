#include "Mox/Ptr.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

class Counted : public Mox::PtrInterface {
 public:
  explicit Counted(int* destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++*destroyed_; }

 private:
  int* destroyed_;
};

class Derived : public Counted {
 public:
  using Counted::Counted;
};

// Takes and drops a reference to itself while being destroyed, as clean-up
// code that hands `this` around does.
class SelfReferencing : public Mox::PtrInterface {
 public:
  explicit SelfReferencing(int* destroyed) : destroyed_(destroyed) {}
  ~SelfReferencing() override {
    { Mox::Ptr<SelfReferencing> again(this); }
    ++*destroyed_;
  }

 private:
  int* destroyed_;
};

TEST(PtrTest, LastReferenceDestroysExactlyOnce) {
  const auto before = Mox::PtrInterface::instances();
  int destroyed = 0;
  {
    auto a = Mox::makePtr<Counted>(&destroyed);
    EXPECT_EQ(a->references(), 1u);
    Mox::Ptr<Counted> b = a;
    Mox::Ptr<const Counted> c = b;
    EXPECT_EQ(a->references(), 3u);
    Mox::Ptr<Counted> d = std::move(b);
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(a->references(), 3u);
    a.reset();
    c.reset();
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(Mox::PtrInterface::instances(), before + 1);
  }
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(Mox::PtrInterface::instances(), before);
}

TEST(PtrTest, ReferenceTakenDuringDestructionDoesNotDestroyTwice) {
  int destroyed = 0;
  { auto p = Mox::makePtr<SelfReferencing>(&destroyed); }
  EXPECT_EQ(destroyed, 1);
}

TEST(PtrTest, CastsAndComparisons) {
  int destroyed = 0;
  Mox::Ptr<Counted> base = Mox::makePtr<Derived>(&destroyed);
  Mox::Ptr<Derived> down = Mox::ptrDynamicCast<Derived>(base);
  EXPECT_EQ(down, base);
  EXPECT_EQ(base->references(), 2u);
  auto other = Mox::makePtr<Counted>(&destroyed);
  EXPECT_EQ(Mox::ptrDynamicCast<Derived>(other), nullptr);
  EXPECT_NE(other, base);
  Mox::Ptr<const Counted> constant = other;
  EXPECT_EQ(Mox::ptrConstCast<Counted>(constant), other);
}

TEST(PtrTest, ThreadSafeModeCountsExactlyUnderContention) {
  Mox::threadSafePtrIs(true);
  int destroyed = 0;
  {
    auto shared = Mox::makePtr<Counted>(&destroyed);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&shared] {
        for (int i = 0; i < 20000; ++i) {
          Mox::Ptr<Counted> copy = shared;
          Mox::Ptr<Counted> another = copy;
        }
      });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(shared->references(), 1u);
    EXPECT_EQ(destroyed, 0);
  }
  Mox::threadSafePtrIs(false);
  EXPECT_EQ(destroyed, 1);
}

// Exposes deletion so that the check against destroying a referenced object
// can be reached.
class Deletable : public Mox::PtrInterface {
 public:
  static void destroy(Deletable* d) { delete d; }
};

TEST(PtrDeathTest, DestroyingAReferencedObjectIsFatal) {
  EXPECT_DEATH(
      {
        auto p = Mox::makePtr<Deletable>();
        Deletable::destroy(p.release());  // still counted once
      },
      "references\\(\\) == 0");
}

}  // namespace
