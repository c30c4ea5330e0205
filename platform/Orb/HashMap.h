#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "Orb/Ptr.h"

namespace Orb {

namespace HashHelper {

/// A key with its re-hash: a 32-bit mix in which every bit of the input moves the top bits, which choose the
/// bucket.
template <class Key>
struct KeyAndRhashLegacy {
  KeyAndRhashLegacy(Key const& theKey, uint32_t seed) : key(theKey), rhash(mix(seed)) {}

  static constexpr uint32_t mix(uint32_t h) noexcept {
    h = (h ^ (h >> 16)) * 0x85EBCA6BU;
    h = (h ^ (h >> 13)) * 0xC2B2AE35U;
    return h ^ (h >> 16);
  }

  Key key;
  uint32_t rhash;
};

}  // namespace HashHelper

/// What a member carries for its map. A member stands in one map at a time.
template <class Member>
class HashLink {
  template <class, class, auto, auto>
  friend class HashMap;
  Member* hashNext_ = nullptr;
  uint32_t rhash_ = 0;
};

/// The keyed collection of a machine's children: intrusive, chained, reference counting.
///
/// A member derives from HashLink, stores its own key and the link to the next member of its bucket; the map
/// holds one counted reference to each. A map of 2^n buckets puts a member into the bucket named by the top n
/// bits of its re-hashed key, and a chain stands in ascending order of (re-hash, key). Walking bucket by
/// bucket is therefore walking in ascending order of (re-hash, key), however many buckets there are, and that
/// is what makes a walk robust: an iterator holds a reference to its member and the map's change count, and
/// when the map has changed it resumes at the first member behind its own position. Every member that is
/// present throughout is visited exactly once. Only the map itself must outlive the walk.
///
/// `keyOf` is the member's accessor of its key; `seedOf` is the key's accessor of the 32 bits that are
/// re-hashed.
template <class Member_, class Key, auto keyOf, auto seedOf>
class HashMap {
  using Link = HashLink<Member_>;
  using Position = HashHelper::KeyAndRhashLegacy<Key>;

 public:
  using Member = Member_;

  class Iterator {
   public:
    struct End {};
    Iterator(HashMap const& map, Member* first) : map_(&map), member_(first), changes_(map.changes_) {}
    Ptr<Member> const& operator*() const { return member_; }
    Ptr<Member> const& operator->() const { return member_; }
    Iterator& operator++() {
      if (changes_ == map_->changes_) {
        member_ = map_->following(*member_);
      } else {
        Position const position = positionOf(*member_);
        member_ = nullptr;  // its destructor may change the map once more
        changes_ = map_->changes_;
        member_ = map_->firstBehind(position);
      }
      return *this;
    }
    bool operator==(End) const { return !member_; }

   private:
    HashMap const* map_;
    Ptr<Member> member_;
    uint64_t changes_;
  };

  /// The size is a hint: the number of buckets at the start, a power of two.
  explicit HashMap(size_t initialSize = 4) {
    while ((size_t{1} << bits_) < initialSize) ++bits_;
    buckets_.resize(size_t{1} << bits_);
  }
  HashMap(HashMap const&) = delete;
  HashMap& operator=(HashMap const&) = delete;
  ~HashMap() { memberDelAll(); }

  size_t members() const noexcept { return members_; }
  Iterator begin() const { return Iterator(*this, firstFrom(0)); }
  typename Iterator::End end() const { return {}; }

  /// The member under a key, or null.
  Member* member(Key const& key) const {
    Position const position = positionOf(key);
    Member* const found = notBefore(position);
    return isAt(found, position) ? found : nullptr;
  }

  /// Inserts a member whose key is not in the map yet.
  void memberIs(Ptr<Member> const& member) {
    ORB_ASSERT(!this->member((member.get()->*keyOf)()));
    if (members_ >= buckets_.size()) grow();
    link(*member);
    member->newRef();
    ++members_;
    ++changes_;
  }

  /// Takes the member out and returns it; null where the key is absent.
  Ptr<Member> memberDel(Key const& key) {
    Member* const found = member(key);
    if (!found) return nullptr;
    *placeOf(positionOf(key)) = linkOf(*found).hashNext_;
    --members_;
    ++changes_;
    return Ptr<Member>::adopt(found);  // the map's reference passes to the caller
  }

  void memberDelAll() {
    while (Member* const first = firstFrom(0)) memberDel((first->*keyOf)());
  }

 private:
  static Link& linkOf(Member& member) { return member; }
  static Position positionOf(Key const& key) { return Position(key, std::invoke(seedOf, key)); }
  static Position positionOf(Member const& member) { return positionOf((member.*keyOf)()); }

  size_t bucketOf(uint32_t rhash) const { return static_cast<uint64_t>(rhash) >> (32 - bits_); }

  static bool isAt(Member* member, Position const& position) {
    return member && linkOf(*member).rhash_ == position.rhash && (member->*keyOf)() == position.key;
  }
  static bool isBefore(Member& member, Position const& position) {
    uint32_t const rhash = linkOf(member).rhash_;
    return rhash != position.rhash ? rhash < position.rhash : (member.*keyOf)() < position.key;
  }

  /// Where a member of that position hangs or would hang.
  Member** placeOf(Position const& position) {
    Member** place = &buckets_[bucketOf(position.rhash)];
    while (*place && isBefore(**place, position)) place = &linkOf(**place).hashNext_;
    return place;
  }
  /// The first member of the position's bucket that is at the position or behind it, or null.
  Member* notBefore(Position const& position) const { return *const_cast<HashMap*>(this)->placeOf(position); }

  void link(Member& member) {
    Position const position = positionOf(member);
    Member** const place = placeOf(position);
    linkOf(member).rhash_ = position.rhash;
    linkOf(member).hashNext_ = std::exchange(*place, &member);
  }

  Member* firstFrom(size_t bucket) const {
    while (bucket < buckets_.size() && !buckets_[bucket]) ++bucket;
    return bucket < buckets_.size() ? buckets_[bucket] : nullptr;
  }

  Member* following(Member& member) const {
    Link const& link = linkOf(member);
    return link.hashNext_ ? link.hashNext_ : firstFrom(bucketOf(link.rhash_) + 1);
  }

  /// The first member behind a position.
  Member* firstBehind(Position const& position) const {
    Member* const next = notBefore(position);
    if (!next) return firstFrom(bucketOf(position.rhash) + 1);
    return isAt(next, position) ? following(*next) : next;
  }

  void grow() {
    std::vector<Member*> const old = std::exchange(buckets_, std::vector<Member*>(buckets_.size() * 2));
    ++bits_;
    for (Member* chain : old) {
      while (chain) {
        Member& moved = *chain;
        chain = linkOf(moved).hashNext_;
        link(moved);
      }
    }
  }

  std::vector<Member*> buckets_;
  unsigned bits_ = 0;
  size_t members_ = 0;
  uint64_t changes_ = 0;
};

}  // namespace Orb
