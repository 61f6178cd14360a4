#include "Mox/Collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Mox/PtrSet.h"

namespace {

using Ints = Mox::Collection<int, std::string>;

Ints makeInts(std::initializer_list<int> keys) {
  Ints c;
  for (int k : keys) c.is(k, "v" + std::to_string(k));
  return c;
}

// Walks `c`, calling `step(key)` on each element before moving on; returns the
// keys visited.
template <class Step>
std::vector<int> walk(Ints& c, Step step) {
  std::vector<int> seen;
  for (auto it = c.begin(); it != c.end(); ++it) {
    seen.push_back(it->first);
    step(it->first);
  }
  return seen;
}

TEST(CollectionTest, WalksInAscendingKeyOrder) {
  Ints c = makeInts({30, 10, 20});
  EXPECT_EQ(walk(c, [](int) {}), (std::vector<int>{10, 20, 30}));
  EXPECT_EQ(c.size(), 3u);
  ASSERT_NE(c.find(20), nullptr);
  EXPECT_EQ(*c.find(20), "v20");
  EXPECT_EQ(c.find(25), nullptr);
}

TEST(CollectionTest, RemovingTheCurrentElementKeepsTheWalkGoing) {
  Ints c = makeInts({1, 2, 3, 4});
  EXPECT_EQ(walk(c, [&](int k) { c.del(k); }), (std::vector<int>{1, 2, 3, 4}));
  EXPECT_TRUE(c.empty());
}

TEST(CollectionTest, ElementsRemovedAheadAreNotVisited) {
  Ints c = makeInts({1, 2, 3, 4, 5});
  EXPECT_EQ(walk(c,
                 [&](int k) {
                   if (k == 2) {
                     c.del(3);
                     c.del(2);
                     c.del(5);
                   }
                 }),
            (std::vector<int>{1, 2, 4}));
}

TEST(CollectionTest, InsertionsAheadAreVisitedAndBehindAreNot) {
  Ints c = makeInts({10, 20, 30});
  EXPECT_EQ(walk(c,
                 [&](int k) {
                   if (k == 20) {
                     c.is(5, "behind");
                     c.is(25, "ahead");
                     c.del(20);
                   }
                 }),
            (std::vector<int>{10, 20, 25, 30}));
  EXPECT_TRUE(c.contains(5));
}

TEST(CollectionTest, ClearingDuringAWalkEndsIt) {
  Ints c = makeInts({1, 2, 3});
  EXPECT_EQ(walk(c, [&](int) { c.delAll(); }), (std::vector<int>{1}));
}

TEST(CollectionTest, RemovedValueIsDestroyedAfterItLeftTheCollection) {
  struct Probe {
    Mox::Collection<int, std::shared_ptr<Probe>>* owner;
    int key;
    bool* sawItselfGone;
    ~Probe() { *sawItselfGone = !owner->contains(key); }
  };
  Mox::Collection<int, std::shared_ptr<Probe>> c;
  bool gone1 = false;
  bool gone2 = false;
  c.is(1, std::make_shared<Probe>(Probe{&c, 1, &gone1}));
  c.is(2, std::make_shared<Probe>(Probe{&c, 2, &gone2}));
  c.del(1);
  EXPECT_TRUE(gone1);
  c.delAll();
  EXPECT_TRUE(gone2);
}

TEST(CollectionTest, IsReplacesAndIsWithKeeps) {
  Ints c;
  c.is(1, "a");
  c.is(1, "b");
  EXPECT_EQ(*c.find(1), "b");
  int made = 0;
  c.isWith(1, [&] { return ++made, std::string("c"); });
  c.isWith(2, [&] { return ++made, std::string("d"); });
  EXPECT_EQ(*c.find(1), "b");
  EXPECT_EQ(*c.find(2), "d");
  EXPECT_EQ(made, 1);
}

struct Node {
  int id;
};

std::vector<int> ids(const Mox::PtrSet<Node>& s) {
  std::vector<int> out;
  for (Node* n : s) out.push_back(n->id);
  return out;
}

TEST(PtrSetTest, WalksInInsertionOrderAndReinsertionGoesLast) {
  Node a{1}, b{2}, c{3};
  Mox::PtrSet<Node> s;
  EXPECT_TRUE(s.is(&c));
  EXPECT_TRUE(s.is(&a));
  EXPECT_TRUE(s.is(&b));
  EXPECT_FALSE(s.is(&a));
  EXPECT_EQ(ids(s), (std::vector<int>{3, 1, 2}));
  EXPECT_TRUE(s.del(&c));
  EXPECT_FALSE(s.del(&c));
  s.is(&c);
  EXPECT_EQ(ids(s), (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(s.contains(&b));
  EXPECT_EQ(s.size(), 3u);
}

TEST(PtrSetTest, WalkSurvivesRemovalOfCurrentAndReachesMembersAddedDuringIt) {
  Node a{1}, b{2}, c{3}, d{4};
  Mox::PtrSet<Node> s;
  s.is(&a);
  s.is(&b);
  s.is(&c);
  std::vector<int> seen;
  for (auto it = s.begin(); it != s.end(); ++it) {
    Node* n = *it;
    seen.push_back(n->id);
    s.del(n);
    if (n == &a) {
      s.del(&b);  // ahead: not visited
      s.is(&d);   // appended: visited
    }
  }
  EXPECT_EQ(seen, (std::vector<int>{1, 3, 4}));
  EXPECT_TRUE(s.empty());
}

TEST(PtrSetTest, LargeSetAgreesWithAModelThroughRemovalsAndReinsertions) {
  std::vector<Node> nodes(300);
  for (std::size_t i = 0; i < nodes.size(); ++i) nodes[i].id = static_cast<int>(i);
  Mox::PtrSet<Node> s;
  std::vector<int> model;  // the members in insertion order
  std::mt19937 rng(7);
  for (int step = 0; step < 20000; ++step) {
    Node* n = &nodes[rng() % nodes.size()];
    const auto at = std::find(model.begin(), model.end(), n->id);
    if (rng() % 3 != 0) {
      ASSERT_EQ(s.is(n), at == model.end());
      if (at == model.end()) model.push_back(n->id);
    } else {
      ASSERT_EQ(s.del(n), at != model.end());
      if (at != model.end()) model.erase(at);
    }
    if (step % 1000 != 0) continue;
    ASSERT_EQ(ids(s), model);
    ASSERT_EQ(s.size(), model.size());
    for (const Node& m : nodes) {
      ASSERT_EQ(s.contains(&m), std::count(model.begin(), model.end(), m.id) == 1);
    }
  }
  s.delAll();
  EXPECT_TRUE(s.empty());
  EXPECT_FALSE(s.contains(&nodes[0]));
  EXPECT_EQ(ids(s), std::vector<int>{});
}

TEST(PtrSetTest, WalkKeepsItsPlaceWhileEveryOtherMemberIsRemovedAndInsertedAgain) {
  std::vector<Node> nodes(64);
  Mox::PtrSet<Node> s;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    nodes[i].id = static_cast<int>(i);
    s.is(&nodes[i]);
  }
  auto it = s.begin();
  ++it;
  ++it;
  EXPECT_EQ((*it)->id, 2);
  // Enough removals to compact the set, were no walk standing on it.
  for (int round = 0; round < 3; ++round) {
    for (Node& n : nodes) {
      if (n.id != 2) s.del(&n);
    }
    for (Node& n : nodes) {
      if (n.id != 2) s.is(&n);
    }
  }
  std::vector<int> rest;
  for (++it; it != s.end(); ++it) rest.push_back((*it)->id);
  std::vector<int> expected;
  for (const Node& n : nodes) {
    if (n.id != 2) expected.push_back(n.id);
  }
  EXPECT_EQ(rest, expected);
  EXPECT_EQ(s.size(), nodes.size());
}

}  // namespace
