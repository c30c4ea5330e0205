#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "Brine/TableBase.h"
#include "Brine/read/Pin.h"
#include "Brine/read/Shadow.h"
#include "Brine/segment/Lookup.h"

namespace Brine {

/// What a reader of rows of one type does: look-ups, the writer's too, and telling its owner of changes. From
/// its shadow it knows what it told, and tells every difference from that and nothing else. What it told
/// outlives the mount.
template <TableRow Row>
class TableReader {
 public:
  using Key = typename Codec<Row>::Key;
  using Hook = std::function<void(Key const&)>;

  /// All outlive it. `countAudience` may be empty: then the hook is for one observer.
  TableReader(TableBase& table, Hook const& onChanged, std::function<uint32_t()> const& countAudience)
      : table_(table), onChanged_(onChanged), countAudience_(countAudience) {}

  /// A file was taken on.
  void begin() {
    nextChange_ = 0;
    comparison_.reset();
    if (generation_ != segment().generation()) shadow_.forgetVersions();
    generation_ = segment().generation();
  }

  bool find(Key const& key, Row& row) const {
    if (pins_ != nullptr && !table_.writer_) {
      uint64_t pinned[keyWordCount];
      C::encodeKey(key, pinned);
      for (Pin<Row> const* pin = pins_; pin != nullptr; pin = pin->next()) {
        if (!pin->isFor(pinned)) continue;
        if (pin->row() != nullptr) row = *pin->row();
        return pin->row() != nullptr;
      }
    }
    Words const words(key);
    Found found;
    if (!findRow(segment(), words, found)) return false;
    decodeRow(found.words, found.id, row);
    return true;
  }

  void stage(std::span<Key const> keys) const {
    StagedKey<Row> staged[stageBatch];
    stageKeys<Row>(segment(), keys, staged, [this](uint32_t id) { prefetch(segment().slot(id)); });
  }

  DeliverResult deliver(uint64_t limit) {
    DeliverResult result;
    if (isDelivering_) return result;
    During<bool> const delivering(isDelivering_, true);
    try {
      // A hook may have mounted it as writer.
      if (table_.look() && table_.mode() != Mode::writer) {
        do {
          tellChanges(limit, result);
        } while (result.isMore && result.changes < limit);
      }
      if (result.isMore && table_.reader_) table_.reader_->kick();
    } catch (...) {
      onRaised();
    }
    return result;
  }

  /// How many observers have joined so far. 0 if nobody hears of changes.
  uint32_t audience() const {
    if (!onChanged_) return 0;
    return countAudience_ ? countAudience_() : 1;
  }
  /// In the hook: whom the change is for.
  Audience const& told() const { return told_; }

  /// A walk has met the row: those who were not told of it are, `audience` of them at least, and look-ups
  /// give it while `pin` lasts.
  void meet(uint64_t const* key, uint32_t id, uint64_t version, Row const& row, Pin<Row>& pin,
            uint32_t audience) {
    if (!shadow_.isTold(id, version, audience)) meetNews(key, id, version, row);
    unpin(key);
    pin.link(pins_, key, &row);
  }

 private:
  using C = Codec<Row>;
  using Words = KeyWords<Row>;
  using Found = FoundRow<Row>;
  static constexpr unsigned keyWordCount = C::keyWords;
  static constexpr unsigned batch = 32;

  /// Gives a member another value during a scope.
  template <class Value>
  struct During {
    During(Value& place, Value value) : place_(place), outer_(std::exchange(place, value)) {}
    ~During() { place_ = outer_; }
    Value& place_;
    Value const outer_;
  };

  Segment& segment() const { return *table_.mounted_.segment; }
  uint64_t serial() const { return table_.mounted_.serial; }

  /// In a handler, where a delivery raised: reports what is the table's own, else raises it again.
  void onRaised() {
    if (!table_.isOfHook()) {
      table_.mustCompareAll_ = true;
      try {
        throw;
      } catch (CorruptionError const& error) {
        return table_.reportCorruption(error.what());
      } catch (SpaceError const& error) {
        table_.setStatus(MountStatus::noResources, error.what());
        return table_.reportQuiesced(false);
      } catch (...) {
      }
    }
    // The events were taken, but not all that they stand for was told.
    if (table_.reader_) table_.reader_->kick();
    throw;
  }

  /// A comparison with what was told. It may take several deliveries; what changes meanwhile is told behind
  /// it, by the ring, or by another comparison.
  struct Comparison {
    uint64_t nextChange;  ///< To go on with; 0 if it is not known.
    uint32_t id = 0;      ///< Rows below were compared,
    uint32_t stray = 0;   ///< and then strays below.
  };

  /// Tells of `limit` changes, or a batch more; `result.isMore` where others are left.
  void tellChanges(uint64_t limit, DeliverResult& result) {
    uint64_t const before = serial();
    result.isMore = false;
    uint64_t const quiet = loadAcquire(&segment().header()->quiet);
    uint64_t const head = loadAcquire(&segment().header()->head);
    // After the head: the rows of all changes up to it lie within what is followed now.
    segment().follow();
    // A head that neither its own entry nor quiet bears out may be ahead of its changes: until it is written
    // again, nothing is known of what is still to come.
    bool const isKnown = quiet == head || loadAcquire(segment().ring().entry(head)) >= head;
    bool const mustCompare = table_.mustCompareAll_;
    if (mustCompare || comparison_ || head + 1 != nextChange_ || quiet == 0) table_.reportQuiesced(false);
    if (before != serial()) return;
    if (mustCompare || (!comparison_ && !tellRing(head, limit, result))) {
      if (before != serial()) return;
      if (!mustCompare) ++table_.figures_.laps;
      table_.mustCompareAll_ = false;
      comparison_ = Comparison{isKnown ? head + 1 : 0};
    }
    if (comparison_ && compareAll(limit, result)) {
      nextChange_ = comparison_->nextChange;
      comparison_.reset();
    }
    if (before != serial() || table_.mountStatus() == MountStatus::noResources) return;
    result.isMore = comparison_ || (nextChange_ != 0 && nextChange_ <= head);
    // Looked at again: what was told may have been of a turn that began meanwhile.
    bool const isQuiet = quiet != 0 && loadAcquire(&segment().header()->quiet) == quiet;
    if (isQuiet && quiet + 1 == nextChange_) table_.reportQuiesced(true);
  }

  /// Tells the ring's changes up to `head`, or about `limit` of them. Returns false where they are not all
  /// there any more.
  bool tellRing(uint64_t head, uint64_t limit, DeliverResult& result) {
    RingEntry read[batch];
    uint64_t const before = serial();
    if (head + 1 < nextChange_) return false;
    while (nextChange_ <= head && result.changes < limit) {
      if (head - nextChange_ >= segment().ring().entries()) return false;
      unsigned count = 0;
      bool complete = true;
      for (; count < batch && nextChange_ + count <= head; ++count) {
        if (!(complete = segment().ring().read(nextChange_ + count, keyWordCount, read[count]))) break;
        prefetchRow(read[count].id);
        shadow_.prefetch(read[count].id);
      }
      for (unsigned i = 0; i < count; ++i) {
        nextChange_ = read[i].sequence + 1;
        tellChange(read[i], head, result);
        if (before != serial()) return true;
      }
      if (!complete) return false;
    }
    return true;
  }

  /// What was told of a row that changed behind the head stays as it is: the ring has that change too, for
  /// the next delivery. So one ends however fast a row changes while its hooks run.
  void tellChange(RingEntry const& change, uint64_t head, DeliverResult& result) {
    uint64_t const before = serial();
    auto const isAhead = [&] {
      auto const* const told = shadow_.home(change.id);
      return told != nullptr && sequenceOf(told->version) > head && Words::equal(told->key, change.key);
    };
    if (isAhead()) return;
    compareKey(change.key, change.id, result);
    // Else the row has gone to another key, or the entry's key is damaged.
    if (before == serial() && !isAhead() && !isOf(change.id, change.key) && isNews(change.id))
      compareRow(change.id, result);
  }

  /// Compares every row with what was told: versions only, and keys where these differ. False where there is
  /// more to compare, after about `limit` changes, or nothing any more.
  bool compareAll(uint64_t limit, DeliverResult& result) {
    uint64_t const before = serial();
    // The number of rows is a hint from shared memory; their ids are bounded.
    uint32_t const ids = segment().highWater();
    shadow_.reserve(std::min<uint64_t>(loadRelaxed(&segment().header()->rows), ids), ids);
    auto const end = [this] { return std::max(segment().highWater(), shadow_.homes()); };
    while (comparison_->id < end()) {
      if (result.changes >= limit) return false;
      uint32_t news[batch];
      unsigned count = 0;
      uint32_t id = comparison_->id;
      for (uint32_t const stop = end(); id < stop && count < batch; ++id) {
        prefetchRow(id + batch);
        if (!isNews(id)) continue;
        news[count++] = id;
        if (shadow_.version(id) != 0 || id >= segment().capacity()) continue;
        uint64_t key[keyWordCount];
        for (unsigned i = 0; i < keyWordCount; ++i) key[i] = loadRelaxed(segment().slot(id) + 2 + i);
        shadow_.prefetchIndex(Words(key));
      }
      for (unsigned i = 0; i < count; ++i) {
        compareRow(news[i], result);
        if (before != serial()) return false;
      }
      comparison_->id = id;
    }
    for (; comparison_->stray < shadow_.strays(); ++comparison_->stray) {
      if (result.changes >= limit) return false;
      if (shadow_.stray(comparison_->stray) == nullptr) continue;
      auto const stray = *shadow_.stray(comparison_->stray);
      compareKey(stray.key, noRow, result);
      if (before != serial()) return false;
    }
    return true;
  }

  void compareRow(uint32_t id, DeliverResult& result) {
    uint64_t const before = serial();
    // What was told of it comes first: most likely it is here still, or gone.
    if (shadow_.home(id) != nullptr) {
      auto const told = *shadow_.home(id);
      compareKey(told.key, id, result);
      if (before != serial() || !isNews(id)) return;
    }
    if (id >= segment().capacity()) return;
    Found found;
    RowState const state =
        readSlot<Row>(segment().slot(id), id, segment().seed(), found.words, found.version);
    Row row;
    if (state == RowState::damaged || (state == RowState::live && !C::decode(found.words, row))) {
      table_.reportCorruption("row " + std::to_string(id) + " is damaged");
    } else if (state == RowState::live) {
      tell(found.words, id, found.version, row, result);
    }
  }

  /// Tells the difference between the key as it is now and as it was told, if there is one.
  void compareKey(uint64_t const* key, uint32_t likelyId, DeliverResult& result) {
    Found found;
    Row row;
    if (findCurrent(key, likelyId, found, row)) {
      tell(key, found.id, found.version, row, result);
    } else if (auto const former = shadow_.erase(key, likelyId); former.version != 0) {
      // Nobody is told of an absence who was not told of the presence.
      announce(key, nullptr, result, {0, former.audience});
    }
  }

  /// Whether the row holds, or no longer holds, something that is not what was last told of it. A hint: who
  /// acts on it reads the row.
  bool isNews(uint32_t id) const {
    // Acquire: who leaves the row aside because of a later turn's removal must not take the writer for quiet.
    uint64_t const version = id < segment().capacity() ? loadAcquire(segment().slot(id)) : 0;
    bool const isLive = (version & versionLive) != 0;
    return (isLive ? version : 0) != shadow_.version(id);
  }

  /// A hint too.
  bool isOf(uint32_t id, uint64_t const* key) const {
    return id < segment().capacity() && livesIn(segment().slot(id), key, keyWordCount);
  }

  /// Finds the key's row as it is now, in the slot where it most likely is or else through the index. A
  /// damaged row is reported, and counts as absent.
  bool findCurrent(uint64_t const* key, uint32_t likelyId, Found& found, Row& row) {
    try {
      uint32_t damaged = noRow;
      found.id = likelyId;
      if (!holdsKey(segment(), likelyId, key, found, damaged) && !findRow(segment(), Words(key), found))
        return false;
      decodeRow(found.words, found.id, row);
      return true;
    } catch (RowDamage const& error) {
      table_.reportCorruption(error.what());
      return false;
    }
  }

  /// Tells those of the key's row who were not told of it.
  void tell(uint64_t const* key, uint32_t id, uint64_t version, Row const& row, DeliverResult& result) {
    uint32_t const all = audience();
    auto const former = shadow_.tell(key, id, version, all);
    if (former.version != version) {
      announce(key, &row, result);
    } else if (former.audience < all) {
      announce(key, &row, result, {former.audience, all});
    }
  }

  void announce(uint64_t const* key, Row const* row, DeliverResult& result, Audience whom = {}) {
    unpin(key);
    ++result.changes;
    ++table_.figures_.delivered;
    table_.figures_.shadowKeys = shadow_.size();
    if (whom.upTo == 0 || !onChanged_) return;
    Pin<Row> pin;
    link(pin, key, row);
    During<Audience> const telling(told_, whom);
    // It is of a row that was decoded, now or when it was told.
    table_.call(onChanged_, C::decodeKey(key).value());
  }

  [[gnu::noinline]] void meetNews(uint64_t const* key, uint32_t id, uint64_t version, Row const& row) {
    if (audience() == 0) return;
    uint64_t const before = serial();
    if (shadow_.version(id) != version) table_.reportQuiesced(false);
    DeliverResult ignored;
    tell(key, id, version, row, ignored);
    // The row's former key has gone from here.
    if (before != serial() || shadow_.home(id) == nullptr) return;
    auto const former = *shadow_.home(id);
    if (Words::equal(former.key, key)) return;
    try {
      compareKey(former.key, id, ignored);
    } catch (Orb::Error const&) {
      // What the table has to say of itself, the next delivery does.
      if (table_.isOfHook()) throw;
    }
  }

  /// Look-ups give the key's present row again: walks and announcements further out on the stack showed an
  /// older one.
  void unpin(uint64_t const* key) {
    for (Pin<Row>* pin = pins_; pin != nullptr;) {
      Pin<Row>* const next = pin->next();
      if (pin->isFor(key)) pin->unlink();
      pin = next;
    }
  }

  /// Not inlined, or the compiler takes the pin for one that outlives its function.
  [[gnu::noinline]] void link(Pin<Row>& pin, uint64_t const* key, Row const* row) {
    pin.link(pins_, key, row);
  }

  void prefetchRow(uint32_t id) const {
    if (id < segment().capacity()) prefetch(segment().slot(id));
  }

  TableBase& table_;
  Hook const& onChanged_;
  std::function<uint32_t()> const& countAudience_;
  Audience told_;
  bool isDelivering_ = false;
  uint64_t generation_ = 0;
  /// Number of the next change to tell; 0 if it is not known.
  uint64_t nextChange_ = 0;
  std::optional<Comparison> comparison_;
  Shadow<Row> shadow_;
  Pin<Row>* pins_ = nullptr;
};

}  // namespace Brine
