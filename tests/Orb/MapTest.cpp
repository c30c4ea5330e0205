#include <gtest/gtest.h>

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

class Flat {
 public:
  bool put(Key key) { return map_.put(key, key.number + 1); }
  bool erase(Key key) {
    uint32_t value = 0;
    return map_.take(key, value) && value == key.number + 1;
  }
  bool has(Key key) const { return map_.contains(key) && *map_.find(key) == key.number + 1; }
  void clear() { map_.clear(); }
  size_t size() const { return map_.size(); }
  template <class Visit>
  void walk(Visit const& visit) const {
    for (auto const& entry : map_) visit(Key(entry.key));
  }

 private:
  Orb::FlatMap<Key, uint32_t> map_;
};

class Chained {
 public:
  struct Member : Orb::PtrInterface, Orb::HashLink<Member> {
    Member(Key k, Chained& m) : map(m), itsKey(k) {}
    ~Member() override {
      if (auto const action = std::exchange(map.atDestruction, {})) action(itsKey);
    }
    Key const& key() const { return itsKey; }
    Chained& map;
    Key itsKey;
  };
  bool put(Key key) {
    if (has(key)) return false;
    map_.memberIs(Orb::makePtr<Member>(key, *this));
    return true;
  }
  bool erase(Key key) { return map_.memberDel(key) != nullptr; }
  bool has(Key key) const { return map_.member(key) && map_.member(key)->itsKey == key; }
  void clear() { map_.memberDelAll(); }
  size_t size() const { return map_.members(); }
  template <class Visit>
  void walk(Visit const& visit) const {
    for (auto const& member : map_) {
      Key const before = member->itsKey;
      visit(before);
      EXPECT_EQ(member->itsKey, before);  // held by the walk
    }
  }
  std::function<void(Key)> atDestruction;

 private:
  Orb::HashMap<Member, Key, &Member::key, &Key::hash> map_{2};
};

template <class T>
class Map : public testing::Test {};
using Maps = testing::Types<Flat, Chained>;
TYPED_TEST_SUITE(Map, Maps);

TYPED_TEST(Map, BehavesLikeAModelAlsoWhileItIsWalked) {
  std::mt19937 random(1);
  TypeParam map;
  std::set<Key> model, throughout;
  auto const operation = [&](uint32_t keys) {
    Key const key{static_cast<uint32_t>(random() % keys)};
    ASSERT_EQ(map.has(key), model.contains(key));
    if (random() % 2 != 0) {
      ASSERT_EQ(map.put(key), model.insert(key).second);
    } else {
      ASSERT_EQ(map.erase(key), model.erase(key) == 1);
      throughout.erase(key);
    }
    if (random() % 1000 == 0) map.clear(), model.clear(), throughout.clear();
    ASSERT_EQ(map.size(), model.size());
  };
  for (size_t round = 0; round < TestSupport::scaled(2000); ++round) {
    uint32_t const keys = 1u << round % 9;
    for (int i = 0; i < 20; ++i) operation(keys);
    // A walk visits what is there throughout exactly once, what comes or goes at most once, nothing else.
    std::set<Key> ever = model, visited;
    throughout = model;
    bool const disturbed = round % 2 != 0;
    map.walk([&](Key key) {
      ASSERT_TRUE(visited.insert(key).second || !throughout.contains(key));
      ASSERT_TRUE(ever.contains(key));
      if (!disturbed) return;
      if (random() % 3 == 0) map.erase(key), model.erase(key), throughout.erase(key);
      for (int i = 0; i < 3; ++i) operation(keys);
      ever.insert(model.begin(), model.end());
    });
    ASSERT_TRUE(std::includes(visited.begin(), visited.end(), throughout.begin(), throughout.end()));
    ASSERT_TRUE(disturbed || visited == model);
  }
}

TEST(HashMap, AMemberThatGoesWithTheWalkTakesOthersAlong) {
  Chained map;
  for (uint32_t i = 0; i < 40; ++i) map.put({i});
  map.atDestruction = [&](Key key) {
    for (uint32_t i = 0; i < 40; ++i) map.erase({i});
    map.put(key);
  };
  std::vector<Key> visited;
  map.walk([&](Key key) {
    visited.push_back(key);
    map.erase(key);
  });
  EXPECT_EQ(visited.size(), 1u);
  EXPECT_TRUE(map.has(visited.front()));
}

TEST(FlatMap, ValuesLeaveWhenTheMapHasChanged) {
  struct Token : Orb::PtrInterface {
    explicit Token(std::function<void()> f) : atDestruction(std::move(f)) {}
    ~Token() override { atDestruction(); }
    std::function<void()> atDestruction;
  };
  Orb::FlatMap<Key, Ptr<Token>> map;
  std::vector<size_t> sizes;
  auto const token = [&] {
    return Orb::makePtr<Token>([&] {
      size_t walked = 0;
      for (auto const& entry : map) walked += entry.value ? 1u : 100u;
      EXPECT_EQ(walked, map.size());
      sizes.push_back(walked);
    });
  };
  for (uint32_t i = 0; i < 3; ++i) map.put({i}, token());
  map.put({1}, token());
  map.erase({1});
  Ptr<Token> taken = token();
  EXPECT_TRUE(map.take({2}, taken));
  map.clear();
  EXPECT_EQ(sizes, (std::vector<size_t>{3, 2, 1, 0}));
}

}  // namespace
