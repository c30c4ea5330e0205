#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>

#include "Orb/FlatMap.h"
#include "Orb/HashMap.h"
#include "support/Scale.h"

namespace {

using Orb::Ptr;

// Few hashes, some at either end of the range: chains, clusters and wrap-around in small maps.
struct Key {
  uint32_t number = 0;
  uint32_t hash() const { return number % 3 == 0 ? number : number % 3 == 1 ? ~number : 0xFFFFFFFF; }
  auto operator<=>(Key const&) const = default;
};

// What the maps hold; tells when it goes.
struct Element : Orb::PtrInterface, Orb::HashLink<Element> {
  Element(Key k, std::function<void()> const& gone) : itsKey(k), atDestruction(gone) {}
  ~Element() override { atDestruction(); }
  Key const& key() const { return itsKey; }
  Key itsKey;
  std::function<void()> const& atDestruction;
};

class Flat {
 public:
  void put(Ptr<Element> const& element) { map_.put(element->key(), element); }
  bool erase(Key key) { return map_.take(key, last_); }
  bool has(Key key) const { return map_.contains(key) && (*map_.find(key))->key() == key; }
  void clear() { map_.clear(); }
  size_t size() const { return map_.size(); }
  void walk(auto const& visit) const {
    for (auto const& entry : map_) visit(Key(entry.key));
  }

 private:
  Orb::FlatMap<Key, Ptr<Element>> map_;
  Ptr<Element> last_;  // destroyed by the next take()
};

class Chained {
 public:
  void put(Ptr<Element> const& element) {
    if (!has(element->key())) map_.memberIs(element);
  }
  bool erase(Key key) { return map_.memberDel(key) != nullptr; }
  bool has(Key key) const { return map_.member(key) && map_.member(key)->key() == key; }
  void clear() { map_.memberDelAll(); }
  size_t size() const { return map_.members(); }
  void walk(auto const& visit) const {
    for (auto const& member : map_) {
      Key const before = member->key();
      visit(before);
      EXPECT_EQ(member->key(), before);  // held by the walk
    }
  }

 private:
  Orb::HashMap<Element, Key, &Element::key, &Key::hash> map_{2};
};

template <class T>
class Map : public testing::Test {};
using Maps = testing::Types<Flat, Chained>;
TYPED_TEST_SUITE(Map, Maps);

// Random operations, also in the middle of a walk and in the destructors of elements that leave.
TYPED_TEST(Map, BehavesLikeAModelWhateverHappensMeanwhile) {
  std::mt19937 random(1);
  uint32_t keys = 1;
  bool recursive = true;
  std::set<Key> model, throughout, ever;
  std::function<void()> operation, gone;
  TypeParam map;
  auto const erase = [&](Key key) {
    bool const there = model.erase(key) == 1;
    throughout.erase(key);
    ASSERT_EQ(map.erase(key), there);
  };
  operation = [&] {
    Key const key{static_cast<uint32_t>(random() % keys)};
    ASSERT_EQ(map.has(key), model.contains(key));
    ASSERT_EQ(map.size(), model.size());
    if (random() % 2 != 0) {
      ever.insert(key);
      if (model.insert(key).second || random() % 4 == 0) map.put(Orb::makePtr<Element>(key, gone));
    } else {
      erase(key);
    }
  };
  gone = [&] {
    if (random() % 4 != 0 || !std::exchange(recursive, false)) return;
    for (int i = 0; i < 4; ++i) operation();
    while (random() % 16 != 0 && !model.empty()) erase(Key(*model.begin()));
    recursive = true;
  };
  for (size_t round = 0; round < TestSupport::scaled(4000); ++round) {
    keys = 1u << round % 9;
    for (int i = 0; i < 20; ++i) operation();
    // A walk visits what is there throughout exactly once, what comes or goes perhaps, nothing else.
    std::set<Key> visited;
    throughout = ever = model;
    map.walk([&](Key key) {
      ASSERT_TRUE(visited.insert(key).second || !throughout.contains(key));
      ASSERT_TRUE(ever.contains(key));
      if (round % 2 == 0) return;
      if (random() % 3 == 0) erase(key);
      for (auto i = random() % 4; i > 0; --i) operation();
    });
    ASSERT_TRUE(std::includes(visited.begin(), visited.end(), throughout.begin(), throughout.end()));
    ASSERT_TRUE(round % 2 != 0 || visited == model);
    if (round % 50 == 0) {
      recursive = false;
      map.clear(), model.clear();
      recursive = true;
    }
  }
  recursive = false;
}

}  // namespace
