#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Brine/TableBase.h"
#include "Brine/read/Pin.h"
#include "Brine/read/Shadow.h"
#include "Brine/rows/Column.h"
#include "Brine/rows/Row.h"

namespace Brine {

template <TableRow Row>
class Cursor;

/// A keyed table in shared memory, of rows of one type: one writer process, any number of readers. See
/// docs/shared-tables.md for what it guarantees and how.
///
///   Brine::Table<Host> table;
///   table.onChanged = [&](MacVniPair const& key) { ... table.find(key) ... };
///   table.mount({.directory = "/dev/shm/qorevpn", .name = "host", .mode = Brine::Mode::keyshadow});
///   for (;;) { poll table.fd(); table.deliver(); }
///
/// A keyshadow reader is told of every difference from what it was last shown, by a walk, a look-up or a
/// notification, and of nothing else: changes of a key merge, and it is never told that a key is gone which
/// it was not shown. Whoever in the reader's process looks up or walks, it counts as shown to all of them.
///
/// Without a mount a table is empty. Operations of a mounted table raise `CorruptionError` where they meet
/// damage, and `SpaceError` where memory for a grown table cannot be mapped.
template <TableRow Row>
class Table : public TableBase {
 public:
  using Key = typename Codec<Row>::Key;

  Table() : TableBase(RowShape::of<Row>()) {}
  ~Table() override = default;

  // ---- Writer. Each raises `ReadOnlyError` where `isWritable()` is false. ----

  /// Inserts the row or overwrites the one of its key. Returns true if it was inserted. Raises `SpaceError`.
  bool write(Row const& row);
  /// The same for a row in place: one whose key this object has just looked up, walked or written is
  /// committed to its slot without being searched for. Null is not allowed.
  void commit(Row const* row);
  /// Removes the key's row and returns it; nothing if there is none. Raises `CorruptionError`, without
  /// removing it, if the row is damaged.
  std::optional<Row> remove(Key const& key);
  /// The same without a look at the row: also takes damaged ones. Returns true if there was one.
  bool erase(Key const& key);

  // ---- Writer and readers ----

  /// The key's row. While a reader is told of a row, or walks over it, that row.
  std::optional<Row> find(Key const& key) const;
  /// The same into `row`, whose content is undefined if there is none.
  bool find(Key const& key, Row& row) const;
  /// Hints that these keys will be looked up, written or removed next. Best with some tens of them.
  void stage(std::span<Key const> keys) const;
  /// Writer: hints that this key will be written or removed soon, after other work.
  void stage(Key const& key) {
    // Where rows are written in their order, the next one needs no search.
    if (!writer_ || isInOrder_) return;
    Words const words(key);
    // The next one of a batch has been asked for.
    if (staged_[nextStaged_].key.equals(words.words)) return;
    nextStaged_ = 0;
    staged_[0] = {words, noRow};
    segment_->index().prefetchForWriting(words.hash);
  }

  /// All rows; see `Cursor`.
  Cursor<Row> walk() const { return Cursor<Row>(*this, 0, std::nullopt); }
  /// The rows whose key has that column value. Rows of others are not read, but for values that lie a
  /// multiple of 65,280 apart.
  Cursor<Row> walk(uint32_t column) const { return Cursor<Row>(*this, 0, column); }
  /// The rows behind the key's place in the walk's order; behind the place that it had, where that is still
  /// known, if the key has been removed; else all rows.
  Cursor<Row> walkAfter(Key const& key) const { return Cursor<Row>(*this, placeAfter(key), std::nullopt); }
  /// All rows for an onlooker: what it sees does not count as shown to the table's owner.
  Cursor<Row> inspect() const { return Cursor<Row>(*this, 0, std::nullopt, false); }
  /// A copy of all rows in the order of their keys, for an onlooker too.
  std::vector<Row> sorted() const;

  // ---- Readers ----

  DeliverResult deliver() override;
  /// Keyshadow: the owner takes the key for absent, where a look-up raised that it is damaged. It counts as
  /// shown absent then.
  void takeForAbsent(Key const& key) const {
    if (isShadowed()) shadow_.erase(Words(key).words, noRow);
  }

  /// Hook, reader: the key's row was written or removed, by another process or object. May be called for
  /// every key at once after a lap, a recovery or at the first delivery.
  std::function<void(Key const&)> onChanged;

 private:
  friend class Cursor<Row>;
  using C = Codec<Row>;
  using Words = KeyWords<Row>;
  static constexpr unsigned keyWordCount = C::keyWords;
  static constexpr unsigned valueWordCount = C::rowWords - C::keyWords;

  struct Found {
    uint32_t id = noRow;
    uint64_t version = 0;
    uint64_t words[C::rowWords];
  };
  /// A key, and the row that most likely holds it: a hint.
  struct Staged {
    Words key = Words(Key());
    uint32_t id = noRow;
  };
  static constexpr unsigned stageBatch = 32;
  /// Writer: where a key's row lies, with no slot if there is none. Only a search knows more of the entry
  /// than the id.
  struct Own {
    Index::Entry entry;
    uint64_t* slot;
    uint32_t id() const { return entry.id; }
  };
  struct Change {
    uint64_t sequence;
    uint32_t id;
    bool removal;
    uint64_t key[keyWordCount];
  };

  [[gnu::always_inline]] static void decode(uint64_t const* words, uint32_t id, Row& row) {
    if (!C::decode(words, row)) [[unlikely]]
      throwImpossible(id);
  }
  [[noreturn, gnu::cold]] static void throwImpossible(uint32_t id);
  [[noreturn, gnu::cold]] static void throwDamaged(uint32_t id);

  [[gnu::always_inline]] RowState read(uint32_t id, uint64_t* words, uint64_t& version) const {
    return read(segment_->slot(id), id, words, version);
  }
  [[gnu::always_inline]] RowState read(uint64_t const* slot, uint32_t id, uint64_t* words,
                                       uint64_t& version) const {
    return readRow(slot, id, segment_->seed(), keyWordCount, valueWordCount, words, version);
  }
  [[gnu::always_inline]] inline bool search(Words const& key, Found& found) const;
  [[gnu::always_inline]] inline bool holds(uint32_t id, Words const& key, Found& found,
                                           uint32_t& damaged) const;
  [[gnu::noinline]] bool searchOn(Words key, Found& found) const;
  [[gnu::always_inline]] inline uint64_t* ownSlot(uint32_t id, uint64_t const* key) const;
  [[gnu::always_inline]] Own ownAt(uint32_t id, uint64_t const* key) const {
    return {{id}, ownSlot(id, key)};
  }
  [[gnu::always_inline]] inline Staged takeStaged(uint64_t const* words) const;
  [[gnu::always_inline]] inline Own findOwn(Words const& key) const;
  [[gnu::noinline]] Own findOwnOn(Words key) const;
  [[gnu::always_inline]] inline void overwrite(Own own, uint64_t const* words);
  [[gnu::noinline]] void insert(Words const& key, uint64_t const* words);
  [[gnu::always_inline]] inline void eraseAt(Own own, Words const& key);
  uint32_t placeAfter(Key const& key) const;

  bool isShadowed() const { return mode() == Mode::keyshadow; }
  void shown(uint64_t const* key, uint32_t id, uint64_t version) const {
    if (isShadowed()) shadow_.show(key, id, version);
  }
  bool readChange(uint64_t sequence, Change& change) const;
  bool deliverRing(uint64_t head, uint64_t& changes);
  void deliverChange(Change const& change, uint64_t& changes);
  void compareAll(uint64_t& changes, DeliverResult& result);
  void unpin(uint64_t const* key) const;
  [[gnu::always_inline]] inline bool isNews(uint32_t id) const;
  void compareRow(uint32_t id, uint64_t& changes);
  void compareKey(uint64_t const* key, uint32_t likelyId, uint64_t& changes);
  void prefetchRow(uint32_t id) const {
    if (id < segment_->capacity()) prefetch(segment_->slot(id));
  }
  bool findCurrent(uint64_t const* key, uint32_t likelyId, Found& found, Row& row);
  void settle(uint64_t const* key, Found const& found, Row const& row, uint64_t& changes);
  void announce(uint64_t const* key, Row const* row, uint64_t& changes);

  void onAttached(bool sameFile) override;
  uint64_t shadowKeys() const override { return shadow_.size(); }

  mutable Shadow<Row> shadow_;
  mutable Pin<Row>* pins_ = nullptr;
  /// Writer: the slot that the last operation used.
  mutable uint32_t lastId_ = noRow;
  /// The keys that were staged last, and the number of the next one that may be written.
  mutable Staged staged_[stageBatch];
  mutable unsigned nextStaged_ = 0;
  /// Writer: the last write was of the row behind the one before.
  bool isInOrder_ = false;
  /// Reader: number of the next change to deliver; 0 if it is not known.
  uint64_t nextChange_ = 0;
  /// Reader: the owner was told of rows once, in whichever file.
  bool hasTold_ = false;
};

/// Walks over rows in the order of their ids: every row that is present from the walk's beginning to its end
/// once, one that comes or goes meanwhile once or not at all; a key whose row goes and comes back may be met
/// in both places. Rows may be written and removed during the walk, the current one too. Ends when the table
/// is unmounted or its file replaced.
template <TableRow Row>
class [[nodiscard]] Cursor {
 public:
  Cursor(Cursor const&) = delete;
  Cursor& operator=(Cursor const&) = delete;

  /// The next row, verified and copied, or null at the end. Valid until the next call or the cursor's end;
  /// so long, but for `inspect()`, look-ups of a reader give this row too. Raises `CorruptionError` for a
  /// damaged row, which the next call passes, and for a damaged header, which ends the walk.
  Row const* next();

 private:
  friend class Table<Row>;
  Cursor(Table<Row> const& table, uint32_t first, std::optional<uint32_t> column, bool shows = true)
      : table_(table),
        mountSerial_(table.mountSerial_),
        shows_(shows && table.writer_ == nullptr),
        id_(first),
        column_(column) {}

  [[gnu::always_inline]] inline uint64_t const* nextSlot(uint32_t& id);
  bool hasMore();
  [[gnu::noinline]] void show(uint32_t id, uint64_t version, std::array<uint64_t, Codec<Row>::keyWords> key);
  void gatherMatches();

  Table<Row> const& table_;
  uint64_t mountSerial_;
  bool shows_;  ///< What it passes counts as shown.
  uint32_t id_;
  uint32_t end_ = 0;  ///< Below it ids are known to be in use; looked at again where the walk reaches it.
  // Not filtered: the slot of row `id_`, and the id behind the last one that lies in one piece with it.
  uint64_t const* slot_ = nullptr;
  uint32_t pieceEnd_ = 0;
  std::optional<uint32_t> column_;
  // Filtered: what a search of the column found and is not gathered yet; the next matches, gathered so that
  // their rows arrive while others are looked at.
  ColumnBlock blocks_[Column::blocksPerSearch];
  unsigned block_ = 0;
  unsigned blockCount_ = 0;
  uint32_t matches_[16];
  unsigned match_ = 0;
  unsigned matchCount_ = 0;
  Row row_;
  Pin<Row> pin_;  // After the row, which it points to.
};

}  // namespace Brine

#include "Brine/TableImpl.h"

#include "Brine/TableDelivery.h"
