#pragma once

// The member functions of Brine/Table.h but for delivery.

namespace Brine {

template <TableRow Row>
void Table<Row>::throwImpossible(uint32_t id) {
  throw RowDamage("row " + std::to_string(id) + " holds values that no writer wrote");
}

template <TableRow Row>
void Table<Row>::throwDamaged(uint32_t id) {
  throw RowDamage("row " + std::to_string(id) + " is damaged");
}

// ---- Look-up ----

/// Whether the key's row lives in slot `id`, which may be any number.
template <TableRow Row>
bool Table<Row>::holds(uint32_t id, Words const& key, Found& found, uint32_t& damaged) const {
  if (id >= segment_->capacity()) return false;
  RowState const state = read(id, found.words, found.version);
  if (state == RowState::damaged) damaged = id;
  // The slot may have gone to another key since the entry was read, so the key that counts is the one that
  // was read with the version.
  return state == RowState::live && key.equals(found.words);
}

/// Finds a live row: mostly through its home line, else `searchOn()` decides.
template <TableRow Row>
bool Table<Row>::search(Words const& key, Found& found) const {
  segment_->follow();
  uint32_t damaged = noRow;
  auto const isWanted = [&](uint32_t id) __attribute__((always_inline)) {
    return holds(id, key, found, damaged);
  };
  found.id = segment_->index().findHome(key.hash, key.tag, isWanted).id;
  if (found.id != noRow) [[likely]]
    return true;
  // By way of copies, so that what is found above can stay in registers.
  Found later;
  bool const isFound = searchOn(key, later);
  found = later;
  return isFound;
}

/// A row that is present throughout is found: its index entry stays where it is, and a search that missed it
/// because the table grew, so that the entry is in another index, finds the geometry changed and starts anew.
template <TableRow Row>
bool Table<Row>::searchOn(Words key, Found& found) const {
  constexpr unsigned maxGrowths = 64;
  for (unsigned attempt = 0; attempt < maxGrowths; ++attempt) {
    segment_->follow();
    uint32_t damaged = noRow;
    found.id = segment_->index()
                   .find(key.hash, key.tag, [&](uint32_t id) { return holds(id, key, found, damaged); })
                   .id;
    if (found.id != noRow) return true;
    if (damaged != noRow) throwDamaged(damaged);
    if (!segment_->follow()) return false;
  }
  throw CorruptionError("the table's geometry never settles");
}

template <TableRow Row>
std::optional<Row> Table<Row>::find(Key const& key) const {
  std::optional<Row> row(std::in_place);
  if (!find(key, *row)) row.reset();
  return row;
}

template <TableRow Row>
bool Table<Row>::find(Key const& key, Row& row) const {
  if (!segment_) return false;
  if (pins_ != nullptr) {
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
  if (!search(words, found)) {
    if (isShadowed()) shadow_.erase(words.words, noRow);
    return false;
  }
  decode(found.words, found.id, row);
  lastId_ = found.id;
  shown(words.words, found.id, found.version);
  return true;
}

template <TableRow Row>
void Table<Row>::stage(std::span<Key const> keys) const {
  if (!segment_) return;
  bool const writes = writer_ != nullptr;
  Index const& index = segment_->index();
  nextStaged_ = 0;
  while (!keys.empty()) {
    auto const batch = keys.first(std::min<size_t>(stageBatch, keys.size()));
    keys = keys.subspan(batch.size());
    for (size_t i = 0; i < batch.size(); ++i) {
      staged_[i] = {Words(batch[i]), noRow};
      index.prefetch(staged_[i].key.hash);
    }
    for (Staged& staged : std::span(staged_, batch.size())) {
      index.findHome(staged.key.hash, staged.key.tag, [&](uint32_t id) {
        if (id >= segment_->capacity()) return false;
        staged.id = id;
        writes ? prefetchForWriting(segment_->slot(id)) : prefetch(segment_->slot(id));
        if (isShadowed()) shadow_.prefetch(id);
        return false;
      });
    }
  }
}

template <TableRow Row>
std::vector<Row> Table<Row>::sorted() const {
  std::vector<Row> rows;
  for (auto cursor = inspect(); Row const* const row = cursor.next();) rows.push_back(*row);
  std::sort(rows.begin(), rows.end(),
            [](Row const& left, Row const& right) { return C::key(left) < C::key(right); });
  return rows;
}

template <TableRow Row>
uint32_t Table<Row>::placeAfter(Key const& key) const {
  if (!segment_) return 0;
  Words const words(key);
  Found found;
  if (search(words, found)) return found.id + 1;
  // A dead slot keeps its key until it is used again. Where there are several, the last one counts.
  uint32_t place = 0;
  uint64_t latest = 0;
  for (uint32_t id = 0; id < segment_->highWater(); ++id) {
    uint64_t const* const slot = segment_->slot(id);
    bool same = true;
    for (unsigned i = 0; i < keyWordCount; ++i) same &= loadAcquire(slot + 2 + i) == words.words[i];
    uint64_t const version = loadAcquire(slot);
    if (!same || version <= latest) continue;
    latest = version;
    place = id + 1;
  }
  return place;
}

// ---- Writer ----

/// Writer: the slot of that row if the key lives there, else null.
template <TableRow Row>
uint64_t* Table<Row>::ownSlot(uint32_t id, uint64_t const* key) const {
  if (id >= segment_->capacity()) return nullptr;
  uint64_t* const slot = segment_->slot(id);
  bool same = (loadRelaxed(slot) & versionLive) != 0;
  for (unsigned i = 0; i < keyWordCount; ++i) same &= loadRelaxed(slot + 2 + i) == key[i];
  return same ? slot : nullptr;
}

/// The key, as it was staged if it is the next one of those.
template <TableRow Row>
auto Table<Row>::takeStaged(uint64_t const* words) const -> Staged {
  Staged const& next = staged_[nextStaged_];
  if (!next.key.equals(words)) return {Words(words), noRow};
  nextStaged_ = (nextStaged_ + 1) % stageBatch;
  return next;
}

/// The writer's own look-up: only it changes rows, so it need not check versions.
template <TableRow Row>
auto Table<Row>::findOwn(Words const& key) const -> Own {
  uint64_t* slot = nullptr;
  auto const isWanted = [&](uint32_t id) __attribute__((always_inline)) {
    return (slot = ownSlot(id, key.words)) != nullptr;
  };
  Index::Entry const entry = segment_->index().findHome(key.hash, key.tag, isWanted);
  if (slot == nullptr && segment_->index().reachesOn(key.hash)) return findOwnOn(key);
  return {entry, slot};
}

template <TableRow Row>
auto Table<Row>::findOwnOn(Words key) const -> Own {
  uint64_t* slot = nullptr;
  Index::Entry const entry = segment_->index().find(
      key.hash, key.tag, [&](uint32_t id) { return (slot = ownSlot(id, key.words)) != nullptr; });
  return {entry, slot};
}

/// Writes the row where its key lives already.
template <TableRow Row>
void Table<Row>::overwrite(Own own, uint64_t const* words) {
  bool const wasQuiet = writer_->isQuiet();
  RowWriter row(own.slot, own.id(), segment_->seed());
  row.prepare(writer_->nextSequence(), words, keyWordCount, valueWordCount, false);
  row.commit();
  writer_->changed(own.id(), false, words, keyWordCount);
  lastId_ = own.id();
  if (wasQuiet) reportQuiesced(false);
}

template <TableRow Row>
void Table<Row>::insert(Words const& key, uint64_t const* words) {
  // First: a growth may begin the turn.
  bool const wasQuiet = writer_->isQuiet();
  uint32_t const id = writer_->takeId();
  RowWriter row(segment_->slot(id), id, segment_->seed());
  row.prepare(writer_->nextSequence(), words, keyWordCount, valueWordCount, true);
  // Column and index first: whoever sees the row live finds it through both.
  segment_->column(id).wordIs(id, columnWordOf(C::column(words)));
  if (!segment_->index().insert(key.hash, key.tag, id)) {
    writer_->releaseId(id);
    throw CorruptionError("the table's index is damaged");
  }
  row.commit();
  writer_->changed(id, false, words, keyWordCount);
  writer_->rowsAdd(1);
  lastId_ = id;
  if (wasQuiet) reportQuiesced(false);
}

template <TableRow Row>
bool Table<Row>::write(Row const& row) {
  requireWritable("write");
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

template <TableRow Row>
void Table<Row>::commit(Row const* row) {
  requireWritable("write");
  uint64_t words[C::rowWords];
  C::encode(*row, words);
  Own const own = ownAt(lastId_, words);
  own.slot != nullptr ? overwrite(own, words) : static_cast<void>(write(*row));
}

template <TableRow Row>
std::optional<Row> Table<Row>::remove(Key const& key) {
  requireWritable("remove");
  // The one result, decoded in place and first: a copy of it behind the stores would wait for them.
  std::optional<Row> removed;
  Words const words(key);
  Own const own = findOwn(words);
  if (own.slot == nullptr) return removed;
  Found found;
  if (read(own.slot, own.id(), found.words, found.version) != RowState::live) throwDamaged(own.id());
  decode(found.words, own.id(), removed.emplace());
  eraseAt(own, words);
  return removed;
}

template <TableRow Row>
bool Table<Row>::erase(Key const& key) {
  requireWritable("remove");
  Words const words(key);
  Own const own = findOwn(words);
  if (own.slot != nullptr) eraseAt(own, words);
  return own.slot != nullptr;
}

template <TableRow Row>
void Table<Row>::eraseAt(Own own, Words const& key) {
  // First: it may run out of memory. Nobody takes the slot before this is done.
  writer_->releaseId(own.id());
  bool const wasQuiet = writer_->isQuiet();
  RowWriter row(own.slot, own.id(), segment_->seed());
  row.prepareRemoval(writer_->nextSequence());
  row.commit();
  // Afterwards: until it is dead, the row must be found.
  segment_->index().erase(key.hash, own.entry);
  segment_->column(own.id()).wordIs(own.id(), noColumn);
  writer_->changed(own.id(), true, key.words, keyWordCount);
  writer_->rowsAdd(-1);
  if (wasQuiet) reportQuiesced(false);
}

// ---- Walk ----

/// Look-ups give the key's present row again: walks and announcements further out on the stack showed an
/// older one.
template <TableRow Row>
void Table<Row>::unpin(uint64_t const* key) const {
  for (Pin<Row>* pin = pins_; pin != nullptr;) {
    Pin<Row>* const next = pin->next();
    if (pin->isFor(key)) pin->unlink();
    pin = next;
  }
}

/// Looks how far the table has grown, and where the next rows lie in one piece; false at the table's end.
template <TableRow Row>
bool Cursor<Row>::hasMore() {
  Segment const& segment = *table_.segment_;
  if (id_ >= end_) {
    // A walk whose end is damaged is over: whoever passes over damage must come to an end too.
    uint64_t const serial = std::exchange(mountSerial_, 0);
    table_.segment_->follow();
    end_ = segment.highWater();
    mountSerial_ = serial;
    if (id_ >= end_) return false;
  }
  pieceEnd_ = std::min(end_, segment.pieceEnd(id_));
  slot_ = segment.slot(id_);
  return true;
}

template <TableRow Row>
void Cursor<Row>::gatherMatches() {
  Segment const& segment = *table_.segment_;
  match_ = matchCount_ = 0;
  while (matchCount_ < std::size(matches_)) {
    if (block_ == blockCount_) {
      if (id_ == end_) return;
      uint32_t const stop = std::min({end_, segment.pieceEnd(id_), Column::searchEnd(id_)});
      block_ = 0;
      blockCount_ = segment.column(id_).find(id_, stop, columnWordOf(*column_), blocks_);
      id_ = stop;
      continue;
    }
    ColumnBlock& block = blocks_[block_];
    uint32_t const id = block.first + static_cast<uint32_t>(std::countr_zero(block.rows));
    block.rows &= block.rows - 1;
    block_ += block.rows == 0;
    table_.prefetchRow(id);
    matches_[matchCount_++] = id;
  }
}

/// The slot of the next row to look at, with its id, or null.
template <TableRow Row>
uint64_t const* Cursor<Row>::nextSlot(uint32_t& id) {
  constexpr unsigned stride = Layout(16, 16, Codec<Row>::keyWords, Codec<Row>::rowWords).rowStride();
  // The processor's own prefetch stops at the end of a page.
  constexpr unsigned rowsAhead = 24;
  if (!column_) {
    if (id_ >= pieceEnd_ && !hasMore()) return nullptr;
    id = id_++;
    prefetch(slot_ + rowsAhead * stride);
    return std::exchange(slot_, slot_ + stride);
  }
  while (match_ == matchCount_) {
    if (block_ == blockCount_ && id_ >= end_ && !hasMore()) return nullptr;
    gatherMatches();
  }
  id = matches_[match_++];
  return table_.segment_->slot(id);
}

/// The row was passed to a reader's owner: it counts as shown, and look-ups give it until the next one.
template <TableRow Row>
void Cursor<Row>::show(uint32_t id, uint64_t version, std::array<uint64_t, Codec<Row>::keyWords> key) {
  table_.unpin(key.data());
  table_.shown(key.data(), id, version);
  pin_.link(table_.pins_, key.data(), &row_);
}

template <TableRow Row>
Row const* Cursor<Row>::next() {
  using C = Codec<Row>;
  pin_.unlink();
  if (!table_.segment_ || table_.mountSerial_ != mountSerial_) return nullptr;
  uint32_t id = noRow;
  while (uint64_t const* const slot = nextSlot(id)) {
    uint64_t words[C::rowWords];  // Its address goes nowhere, so it lies in registers.
    uint64_t version = 0;
    RowState const state =
        readRow(slot, id, table_.segment_->seed(), C::keyWords, C::rowWords - C::keyWords, words, version);
    if (state == RowState::dead) continue;
    if (state == RowState::damaged) Table<Row>::throwDamaged(id);
    // Another column value may have the same word, or the slot have gone to another row since it was read.
    if (column_ && C::column(words) != *column_) continue;
    Table<Row>::decode(words, id, row_);
    table_.lastId_ = id;
    if (shows_) {
      std::array<uint64_t, C::keyWords> key;
      std::copy_n(words, C::keyWords, key.data());
      show(id, version, key);
    }
    return &row_;
  }
  return nullptr;
}

}  // namespace Brine
