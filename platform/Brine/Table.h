#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "Brine/Cursor.h"
#include "Brine/TableBase.h"
#include "Brine/read/TableReader.h"
#include "Brine/write/TableWriter.h"

namespace Brine {

/// A keyed table in shared memory, of rows of one type: one writer process, any number of readers. See
/// docs/shared-tables.md for what it guarantees and how. A table object is a writer or a reader, as it was
/// mounted; this class only passes on what it is asked for.
///
///   Brine::Table<Host> table;
///   table.onChanged = [&](MacVniPair const& key) { ... table.find(key) ... };
///   table.mount({.directory = "/dev/shm/qorevpn", .name = "host", .mode = Brine::Mode::keyshadow});
///   for (;;) { poll table.fd(); table.deliver(); }
///
/// A reader's owner is told of every difference, through `onChanged`, and of nothing else: changes
/// of a key merge, and it is never told that a key is gone which it was not told of. A delivery tells, and so
/// does a walk that meets a row before a delivery does; a look-up takes nothing away.
///
/// Without a mount, and in a forked child of its writer, a table is empty. Operations of a mounted table
/// raise `CorruptionError` where they meet damage, and `SpaceError` where memory for a grown table cannot be
/// mapped.
template <TableRow Row>
class Table : public TableBase {
 public:
  using Key = typename Codec<Row>::Key;

  Table() : TableBase(RowShape::of<Row>()) {}
  /// No hook is called.
  ~Table() override = default;

  // ---- Writer. Each raises `ReadOnlyError` where `isWritable()` is false. ----

  /// Inserts the row or overwrites the one of its key. Returns true if it was inserted. Raises `SpaceError`.
  bool write(Row const& row) {
    return change("write", [&](TableWriter<Row>& rows) { return rows.write(row); });
  }

  /// The same for a row in place: one whose key this object has just walked or written is committed to its
  /// slot without being searched for. Null is not allowed.
  void commit(Row const* row) {
    change("write", [&](TableWriter<Row>& rows) { return rows.commit(*row); });
  }

  /// Removes the key's row and returns it; nothing if there is none. Raises `CorruptionError`, without
  /// removing it, if the row is damaged.
  std::optional<Row> remove(Key const& key) {
    return change("remove", [&](TableWriter<Row>& rows) { return rows.remove(key); });
  }

  /// The same without a look at the row: also takes damaged ones. Returns true if there was one.
  bool erase(Key const& key) {
    return change("remove", [&](TableWriter<Row>& rows) { return rows.erase(key); });
  }

  // ---- Writer and readers ----

  /// The key's row. While a reader is told of a row, or walks over it, that row.
  std::optional<Row> find(Key const& key) const {
    std::optional<Row> row(std::in_place);
    if (!find(key, *row)) row.reset();
    return row;
  }

  /// The same into `row`, whose content is undefined if there is none.
  bool find(Key const& key, Row& row) const { return mounted_.segment && reading_.find(key, row); }

  /// Hints that these keys will be looked up, written or removed next. Best with some tens of them.
  void stage(std::span<Key const> keys) const {
    if (mounted_.segment) writing_ ? writing_->stage(keys) : reading_.stage(keys);
  }

  /// All rows; see `Cursor`.
  Cursor<Row> walk() const { return cursor(0, std::nullopt); }
  /// The rows whose key has that column value. Rows of others are not read, but for values that lie a
  /// multiple of 65,280 apart.
  Cursor<Row> walk(uint32_t column) const { return cursor(0, column); }
  /// The rows behind the key's place in the walk's order; all rows if there is none of the key.
  Cursor<Row> walkAfter(Key const& key) const {
    FoundRow<Row> found;
    bool const isThere = mounted_.segment && findRow(*mounted_.segment, KeyWords<Row>(key), found);
    return cursor(isThere ? found.id + 1 : 0, std::nullopt);
  }
  /// All rows for an onlooker: the table's owner is told of nothing, and look-ups stay as they are.
  Cursor<Row> inspect() const { return {mounted_, 0, std::nullopt, nullptr, nullptr}; }
  /// A copy of all rows in the order of their keys, for an onlooker too.
  std::vector<Row> sorted() const {
    std::vector<Row> rows;
    for (auto cursor = inspect(); Row const* const row = cursor.next();) rows.push_back(*row);
    std::ranges::sort(rows, std::less<>(), [](Row const& row) { return C::key(row); });
    return rows;
  }

  // ---- Readers ----

  /// Brings the owner up to date through its hooks, on this thread: mount status, then changes, then
  /// quiesced. Does nothing for a writer, and when called from within a delivery. A hook may raise: what it
  /// was called for counts as told, the rest follows at the next call. A hook must not destroy the table.
  ///
  /// `fd()` is readable once a second at least, and each time this looks for what no event tells: a directory
  /// that was made, moved or linked to, memory or descriptors that became free (`noResources`). Where `fd()`
  /// is -1, `mount()` again instead.
  ///
  /// With a `limit`, this ends with the batch, of some tens of rows, in which so many changes were told;
  /// quiesced is told when none is left. For owners whose loop has other things to do than a burst.
  DeliverResult deliver(uint64_t limit = UINT64_MAX) {
    return mode() == Mode::writer ? DeliverResult{} : reading_.deliver(limit);
  }

  /// Hook, reader: the key's row was written or removed, by another process or object. May be called for
  /// every key at once after a lap, a recovery or at the first delivery. To be set before the mount.
  std::function<void(Key const&)> onChanged;
  /// For an owner who passes changes on to observers that join at any time: how many have joined so far, 0 if
  /// there are none. In `onChanged`, `told()` says for which of them the change is: one who joined late is
  /// told of a row when a walk meets it or when it changes, and of the absence of no other.
  std::function<uint32_t()> countAudience;
  Audience const& told() const { return reading_.told(); }

 private:
  using C = Codec<Row>;

  template <class Operation>
  [[gnu::always_inline]] auto change(char const* what, Operation&& operation) {
    requireWritable(what);
    bool const wasQuiet = writer_->isQuiet();
    auto result = operation(*writing_);
    if (wasQuiet || !options().turns) changed();
    return result;
  }

  Cursor<Row> cursor(uint32_t first, std::optional<uint32_t> column) const {
    return {mounted_, first, column, writing_ ? nullptr : &reading_, writing_ ? &*writing_ : nullptr};
  }

  void handleSegment() override {
    writing_.reset();
    if (writer_) {
      writing_.emplace(*writer_);
    } else if (mounted_.segment) {
      reading_.begin();
    }
  }

  // A writer uses the reader's side for look-ups alone. What a reader told outlives its mount.
  mutable std::optional<TableWriter<Row>> writing_;
  mutable TableReader<Row> reading_{*this, onChanged, countAudience};
};

}  // namespace Brine
