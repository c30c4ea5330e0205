#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Brine/segment/Lookup.h"
#include "Brine/write/Writer.h"

namespace Brine {

/// The operations of a table's writer on rows of one type. Who has one may write; it calls no hook and does
/// not end turns.
template <TableRow Row>
class TableWriter {
 public:
  using Key = typename Codec<Row>::Key;

  explicit TableWriter(Writer& writer) : writer_(writer), segment_(writer.segment()) {}

  bool write(Row const& row) {
    uint64_t words[C::rowWords];
    C::encode(row, words);
    // Rows are mostly changed in the order in which they were made, VNI by VNI: then the next one needs no
    // search.
    uint32_t const next = lastId_ + 1;
    if (isInOrder_) {
      if (Own const own = ownAt(next, words); own.slot != nullptr) {
        overwrite(own, words);
        return false;
      }
    }
    Staged const staged = takeStaged(words);
    Own own = ownAt(staged.id, words);
    if (own.slot == nullptr) own = findOwn(staged.key);
    isInOrder_ = own.id() == next;
    own.slot == nullptr ? insert(staged.key, words) : overwrite(own, words);
    return own.slot == nullptr;
  }

  bool commit(Row const& row) {
    uint64_t words[C::rowWords];
    C::encode(row, words);
    Own const own = ownAt(lastId_, words);
    if (own.slot == nullptr) return write(row);
    overwrite(own, words);
    return false;
  }

  std::optional<Row> remove(Key const& key) {
    // The one result, decoded in place and first: a copy of it behind the stores would wait for them.
    std::optional<Row> removed;
    Words const words(key);
    Own const own = findOwn(words);
    if (own.slot == nullptr) return removed;
    FoundRow<Row> found;
    if (readSlot<Row>(own.slot, own.id(), segment_.seed(), found.words, found.version) != RowState::live)
      throwRowDamage(own.id());
    decodeRow(found.words, own.id(), removed.emplace());
    eraseAt(own, words);
    return removed;
  }

  bool erase(Key const& key) {
    Words const words(key);
    Own const own = findOwn(words);
    if (own.slot != nullptr) eraseAt(own, words);
    return own.slot != nullptr;
  }

  void stage(std::span<Key const> keys) {
    nextStaged_ = 0;
    stageKeys<Row>(segment_, keys, staged_, [this](uint32_t id) { prefetchForWriting(segment_.slot(id)); });
  }

  /// The slot that the last operation used: where a walk stands, the row is mostly committed to next.
  void lastIdIs(uint32_t id) { lastId_ = id; }
  Writer& writer() { return writer_; }

 private:
  using C = Codec<Row>;
  using Words = KeyWords<Row>;
  using Staged = StagedKey<Row>;
  static constexpr unsigned keyWordCount = C::keyWords;
  static constexpr unsigned valueWordCount = C::rowWords - C::keyWords;

  /// Where a key's row lies, with no slot if there is none. Only a search knows more of the entry than the
  /// id.
  struct Own {
    Index::Entry entry;
    uint64_t* slot;
    uint32_t id() const { return entry.id; }
  };

  /// The slot of that row if the key lives there, else null.
  [[gnu::always_inline]] uint64_t* ownSlot(uint32_t id, uint64_t const* key) const {
    if (id >= segment_.capacity()) return nullptr;
    uint64_t* const slot = segment_.slot(id);
    return livesIn(slot, key, keyWordCount) ? slot : nullptr;
  }

  [[gnu::always_inline]] Own ownAt(uint32_t id, uint64_t const* key) const {
    return {{id}, ownSlot(id, key)};
  }

  /// The key, as it was staged if it is the next one of those.
  [[gnu::always_inline]] Staged takeStaged(uint64_t const* words) {
    Staged const& next = staged_[nextStaged_];
    if (!Words::equal(next.key.words, words)) return {Words(words), noRow};
    nextStaged_ = (nextStaged_ + 1) % stageBatch;
    return next;
  }

  /// The writer's own look-up: only it changes rows, so it need not check versions.
  [[gnu::always_inline]] Own findOwn(Words const& key) const {
    uint64_t* slot = nullptr;
    auto const isWanted = [&](uint32_t id) __attribute__((always_inline)) {
      return (slot = ownSlot(id, key.words)) != nullptr;
    };
    Index::Entry const entry = segment_.index().findHome(key.hash, isWanted);
    if (slot == nullptr && segment_.index().reachesOn(key.hash)) return findOwnOn(key);
    return {entry, slot};
  }

  [[gnu::noinline]] Own findOwnOn(Words key) const {
    uint64_t* slot = nullptr;
    Index::Entry const entry = segment_.index().find(
        key.hash, [&](uint32_t id) { return (slot = ownSlot(id, key.words)) != nullptr; });
    return {entry, slot};
  }

  /// Writes the row where its key lives already.
  [[gnu::always_inline]] void overwrite(Own own, uint64_t const* words) {
    uint64_t const sequence = writer_.nextSequence();
    RowWriter row(own.slot, own.id(), segment_.seed());
    row.prepare(sequence, words, keyWordCount, valueWordCount, false);
    row.commit();
    writer_.changed(sequence, own.id(), words, keyWordCount);
    lastId_ = own.id();
  }

  [[gnu::noinline]] void insert(Words const& key, uint64_t const* words) {
    uint32_t const id = writer_.takeId();
    uint64_t const sequence = writer_.nextSequence();
    RowWriter row(segment_.slot(id), id, segment_.seed());
    row.prepare(sequence, words, keyWordCount, valueWordCount, true);
    // Column and index first: whoever sees the row live finds it through both.
    segment_.column(id).wordIs(id, columnWordOf(C::column(words)));
    if (!segment_.index().insert(key.hash, id)) {
      writer_.releaseId(id);
      throw CorruptionError("the table's index is damaged");
    }
    row.commit();
    writer_.changed(sequence, id, words, keyWordCount);
    writer_.rowCame(columnWordOf(C::column(words)));
    lastId_ = id;
  }

  [[gnu::always_inline]] void eraseAt(Own own, Words const& key) {
    // First: it may run out of memory. Nobody takes the slot before this is done.
    writer_.releaseId(own.id());
    uint64_t const sequence = writer_.nextSequence();
    RowWriter row(own.slot, own.id(), segment_.seed());
    row.prepareRemoval(sequence);
    row.commit();
    // Afterwards: until it is dead, the row must be found.
    segment_.index().erase(key.hash, own.entry);
    segment_.column(own.id()).wordIs(own.id(), noColumn);
    writer_.changed(sequence, own.id(), key.words, keyWordCount);
    writer_.rowWent(columnWordOf(C::column(key.words)));
  }

  Writer& writer_;
  Segment& segment_;
  uint32_t lastId_ = noRow;
  /// The last write was of the row behind the one before.
  bool isInOrder_ = false;
  /// The keys that were staged last, and the number of the next one that may be written.
  Staged staged_[stageBatch];
  unsigned nextStaged_ = 0;
};

}  // namespace Brine
