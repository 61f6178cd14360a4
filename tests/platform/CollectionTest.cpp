#include "Mox/Collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Mox/BlockCollection.h"
#include "Mox/ConstView.h"
#include "Mox/FlatCollection.h"
#include "Mox/PtrSet.h"

namespace {

// The walk guarantees are the same for both keyed collections: every case below runs over each.
struct OfCollection {
  template <class K, class V>
  using C = Mox::Collection<K, V>;
};
struct OfFlat {
  template <class K, class V>
  using C = Mox::FlatCollection<K, V>;
};
// Room for one element inside: the walks below then also cross from inside to the heap.
struct OfFlatOne {
  template <class K, class V>
  using C = Mox::FlatCollection<K, V, std::less<K>, 1>;
};

// Blocks of four: the walks below also cross blocks that split and merge under them.
struct OfBlockFour {
  template <class K, class V>
  using C = Mox::BlockCollection<K, V, std::less<K>, 4>;
};

template <class Of>
class CollectionTest : public testing::Test {
 protected:
  using Ints = typename Of::template C<int, std::string>;

  static Ints makeInts(std::initializer_list<int> keys) {
    Ints c;
    for (int k : keys) c.is(k, "v" + std::to_string(k));
    return c;
  }

  // Walks `c`, calling `step(key)` on each element before moving on; returns the
  // keys visited.
  template <class Step>
  static std::vector<int> walk(Ints& c, Step step) {
    std::vector<int> seen;
    for (auto it = c.begin(); it != c.end(); ++it) {
      seen.push_back(it->first);
      step(it->first);
    }
    return seen;
  }
};
using Kinds = testing::Types<OfCollection, OfFlat, OfFlatOne, OfBlockFour>;
TYPED_TEST_SUITE(CollectionTest, Kinds);

TYPED_TEST(CollectionTest, WalksInAscendingKeyOrder) {
  auto c = this->makeInts({30, 10, 20});
  EXPECT_EQ(this->walk(c, [](int) {}), (std::vector<int>{10, 20, 30}));
  EXPECT_EQ(c.size(), 3u);
  ASSERT_NE(c.find(20), nullptr);
  EXPECT_EQ(*c.find(20), "v20");
  EXPECT_EQ(c.find(25), nullptr);
  EXPECT_EQ(c.keys(), (std::vector<int>{10, 20, 30}));
}

TYPED_TEST(CollectionTest, RemovingTheCurrentElementKeepsTheWalkGoing) {
  auto c = this->makeInts({1, 2, 3, 4});
  EXPECT_EQ(this->walk(c, [&](int k) { c.del(k); }), (std::vector<int>{1, 2, 3, 4}));
  EXPECT_TRUE(c.empty());
}

TYPED_TEST(CollectionTest, ElementsRemovedAheadAreNotVisited) {
  auto c = this->makeInts({1, 2, 3, 4, 5});
  EXPECT_EQ(this->walk(c,
                       [&](int k) {
                         if (k == 2) {
                           c.del(3);
                           c.del(2);
                           c.del(5);
                         }
                       }),
            (std::vector<int>{1, 2, 4}));
}

TYPED_TEST(CollectionTest, InsertionsAheadAreVisitedAndBehindAreNot) {
  auto c = this->makeInts({10, 20, 30});
  EXPECT_EQ(this->walk(c,
                       [&](int k) {
                         if (k == 20) {
                           c.is(5, "behind");
                           c.is(25, "ahead");
                           c.del(20);
                         }
                       }),
            (std::vector<int>{10, 20, 25, 30}));
  EXPECT_TRUE(c.contains(5));
  // Insertions that move the current element keep the walk on it.
  auto d = this->makeInts({10, 20});
  std::vector<std::string> values;
  for (auto it = d.begin(); it != d.end(); ++it) {
    if (it.key() == 10) d.is(1, "behind");
    values.push_back(it->second);
  }
  EXPECT_EQ(values, (std::vector<std::string>{"v10", "v20"}));
}

TYPED_TEST(CollectionTest, ClearingDuringAWalkEndsIt) {
  auto c = this->makeInts({1, 2, 3});
  EXPECT_EQ(this->walk(c, [&](int) { c.delAll(); }), (std::vector<int>{1}));
}

TYPED_TEST(CollectionTest, RemovedValuesAreDestroyedAfterTheyLeftTheCollection) {
  struct Probe;
  using Probes = typename TypeParam::template C<int, std::shared_ptr<Probe>>;
  // Records, as it dies, its key and the keys still present.
  struct Probe {
    Probes* owner;
    int key;
    std::vector<std::string>* log;
    ~Probe() {
      std::string line = std::to_string(key) + ":";
      for (int k : owner->keys()) line += " " + std::to_string(k);
      log->push_back(line);
    }
  };
  Probes c;
  std::vector<std::string> log;
  for (int k : {3, 1, 2, 4}) c.is(k, std::shared_ptr<Probe>(new Probe{&c, k, &log}));
  c.del(2);
  c.is(4, nullptr);  // replaced: dies after the new value is in place
  c.delAll();
  EXPECT_EQ(log, (std::vector<std::string>{"2: 1 3 4", "4: 1 3 4", "1:", "3:"}));
  EXPECT_TRUE(c.empty());
}

TYPED_TEST(CollectionTest, IsReplacesAndIsWithKeeps) {
  typename TestFixture::Ints c;
  c.is(1, "a");
  c.is(1, "b");
  EXPECT_EQ(*c.find(1), "b");
  int made = 0;
  c.isWith(1, [&] { return ++made, std::string("c"); });
  c.isWith(2, [&] { return ++made, std::string("d"); });
  EXPECT_EQ(*c.find(1), "b");
  EXPECT_EQ(*c.find(2), "d");
  EXPECT_EQ(made, 1);
  // A maker that inserts elements itself: the new value still lands in key order.
  c.isWith(0, [&] {
    c.is(-1, "m");
    c.is(3, "n");
    return std::string("z");
  });
  EXPECT_EQ(c.keys(), (std::vector<int>{-1, 0, 1, 2, 3}));
  EXPECT_EQ(*c.find(0), "z");
}

TYPED_TEST(CollectionTest, CopiesHoldTheSameElements) {
  auto c = this->makeInts({1, 2, 3});
  auto copy = c;
  c.del(2);
  EXPECT_EQ(copy.keys(), (std::vector<int>{1, 2, 3}));
  copy = c;
  EXPECT_EQ(copy.keys(), (std::vector<int>{1, 3}));
  EXPECT_EQ(*copy.find(3), "v3");
}

// Random walks under random changes of `Other` and of a Collection, driven alike, visit the
// same keys: `initial` keys below `range` to start, up to `changes` changes at each step.
template <class Other>
void walkUnderChangeAsCollectionDoes(unsigned seed, int initial, int range, int changes) {
  std::mt19937 random(seed);
  for (int round = 0; round < 300; ++round) {
    Mox::Collection<int, int> tree;
    Other other;
    for (int i = 0; i < initial; ++i) {
      const int k = static_cast<int>(random() % range);
      tree.is(k, k);
      other.is(k, k);
    }
    std::vector<int> treeSeen;
    std::vector<int> otherSeen;
    auto t = tree.begin();
    auto o = other.begin();
    for (; t != tree.end() && o != other.end(); ++t, ++o) {
      treeSeen.push_back(t->second);
      otherSeen.push_back(o->second);
      for (int change = random() % changes; change > 0; --change) {
        const int k = static_cast<int>(random() % range);
        if (random() % 2 != 0) {
          tree.is(k, k);
          other.is(k, k);
        } else {
          tree.del(k);
          other.del(k);
        }
      }
      if (random() % 3 == 0) {
        tree.del(t.key());
        other.del(o.key());
      }
    }
    EXPECT_EQ(t == tree.end(), o == other.end());
    EXPECT_EQ(treeSeen, otherSeen);
    EXPECT_EQ(tree.keys(), other.keys());
    EXPECT_EQ(tree.size(), other.size());
  }
}

TEST(FlatCollectionTest, WalksUnderChangeAsCollectionDoes) {
  walkUnderChangeAsCollectionDoes<Mox::FlatCollection<int, int, std::less<int>, 1>>(7, 6, 12, 3);
}

// Many more keys than a block holds, in blocks of four: splits, merges and emptied blocks
// happen under the walks.
TEST(BlockCollectionTest, WalksUnderChangeAsCollectionDoes) {
  walkUnderChangeAsCollectionDoes<Mox::BlockCollection<int, int, std::less<int>, 4>>(11, 40, 64, 6);
}

TEST(FlatCollectionTest, APresenceValueTakesNoRoom) {
  EXPECT_EQ(sizeof(Mox::FlatEntry<std::uint64_t, Mox::Present>), sizeof(std::uint64_t));
  Mox::FlatCollection<int, Mox::Present> set;
  set.is(2, {});
  set.is(1, {});
  std::vector<std::pair<int, bool>> seen;
  for (const auto& [k, present] : set) seen.emplace_back(k, present);
  EXPECT_EQ(seen, (std::vector<std::pair<int, bool>>{{1, true}, {2, true}}));
}

struct Item : Mox::PtrInterface {
  explicit Item(int v) : value(v) {}
  int value;
};

// A view walks both kinds alike, and over a flat collection the key it yields stays valid
// while the walk's body moves the elements.
template <class View, class Coll>
void expectViewWalksAndFinds(Coll& coll) {
  for (int k : {20, 10}) coll.is(k, Mox::makePtr<Item>(k));
  const View view(coll);
  EXPECT_EQ(view.size(), 2u);
  EXPECT_TRUE(view.contains(20));
  EXPECT_EQ(view.find(10)->value, 10);
  EXPECT_FALSE(view.find(15));
  std::vector<std::pair<int, int>> seen;
  for (const auto& [k, item] : view) {
    coll.is(k - 5, Mox::makePtr<Item>(k - 5));
    seen.emplace_back(k, item->value);
  }
  EXPECT_EQ(seen, (std::vector<std::pair<int, int>>{{10, 10}, {20, 20}}));
}

TEST(ConstViewTest, WalksAndFindsOverBothKinds) {
  Mox::Collection<int, Mox::Ptr<Item>> tree;
  expectViewWalksAndFinds<Mox::ConstView<int, Item>>(tree);
  Mox::FlatCollection<int, Mox::Ptr<Item>> flat;
  expectViewWalksAndFinds<Mox::FlatConstView<int, Item>>(flat);
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
