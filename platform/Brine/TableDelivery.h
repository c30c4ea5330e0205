#pragma once

// The member functions of Brine/Table.h that tell a reader of changes.

namespace Brine {

template <TableRow Row>
void Table<Row>::onAttached(bool sameFile) {
  if (!sameFile) shadow_.forgetVersions();
  ++mountSerial_;
  lastId_ = noRow;
  nextChange_ = 0;
}

/// Reads a ring entry, or returns false where the ring has moved on.
///  1. Load the sequence number, acquire: the expected one means that the entry is whole, and its row
///  committed.
///  2. Load row id and key, acquire each.
///  3. Load the number again: unchanged means that step 2 saw nothing of a later change.
template <TableRow Row>
bool Table<Row>::readChange(uint64_t sequence, Change& change) const {
  uint64_t const* const entry = segment_->ringEntry(sequence);
  if (loadAcquire(entry) != sequence) return false;
  uint64_t const place = loadAcquire(entry + 1);
  for (unsigned i = 0; i < keyWordCount; ++i) change.key[i] = loadAcquire(entry + 2 + i);
  if (loadRelaxed(entry) != sequence) return false;
  change.sequence = sequence;
  change.id = static_cast<uint32_t>(place);
  change.removal = (place & ringRemoval) != 0;
  return true;
}

template <TableRow Row>
DeliverResult Table<Row>::deliver() {
  DeliverResult result;
  if (delivering_ || mode() == Mode::writer) return result;
  struct Guard {
    Table& table;
    explicit Guard(Table& t) : table(t) { table.delivering_ = true; }
    ~Guard() { table.endDelivery(); }
  } const guard(*this);
  try {
    // A hook may have mounted it as writer.
    if (!beginDelivery() || mode() == Mode::writer) return result;
    uint64_t const serial = mountSerial_;
    uint64_t const quiet = loadAcquire(&segment_->header()->quiet);
    uint64_t const head = loadAcquire(&segment_->header()->head);
    // After the head: the rows of all changes up to it lie within what is followed now.
    segment_->follow();
    // A head that neither its own entry nor quiet bears out may be ahead of its changes: until it is written
    // again, nothing is known of what is still to come.
    bool const isKnown = quiet == head || loadAcquire(segment_->ringEntry(head)) >= head;
    if (mustCompareAll() || head + 1 != nextChange_ || quiet == 0) reportQuiesced(false);
    if (serial != mountSerial_) return result;
    if (mustCompareAll() || !deliverRing(head, result.changes)) {
      if (serial != mountSerial_) return result;
      if (!mustCompareAll()) ++laps_;
      compareAll(result.changes, result);
      hasTold_ = true;
      if (serial != mountSerial_) return result;
      comparedAll();
      nextChange_ = isKnown ? head + 1 : 0;
    }
    if (serial != mountSerial_ || mountStatus() == MountStatus::noResources) return result;
    // Looked at again: what was told may have been of a turn that began meanwhile.
    bool const isQuiet = quiet != 0 && loadAcquire(&segment_->header()->quiet) == quiet;
    if (isQuiet && quiet + 1 == nextChange_) reportQuiesced(true);
  } catch (...) {
    hasTold_ |= result.changes != 0;
    onDeliveryRaised();
  }
  return result;
}

/// Delivers the ring's changes up to `head`. Returns false where they are not all there any more.
template <TableRow Row>
bool Table<Row>::deliverRing(uint64_t head, uint64_t& changes) {
  constexpr unsigned batch = 32;
  Change staged[batch];
  uint64_t const serial = mountSerial_;
  if (head + 1 < nextChange_) return false;
  while (nextChange_ <= head) {
    if (head - nextChange_ >= segment_->layout().ringEntries()) return false;
    unsigned count = 0;
    bool complete = true;
    for (; count < batch && nextChange_ + count <= head; ++count) {
      if (!(complete = readChange(nextChange_ + count, staged[count]))) break;
      prefetchRow(staged[count].id);
      if (isShadowed()) shadow_.prefetch(staged[count].id);
    }
    for (unsigned i = 0; i < count; ++i) {
      nextChange_ = staged[i].sequence + 1;
      deliverChange(staged[i], changes);
      if (serial != mountSerial_) return true;
    }
    if (!complete) return false;
  }
  return true;
}

/// Whether the row holds, or no longer holds, something that is not what was last shown there. A hint: who
/// acts on it reads the row.
template <TableRow Row>
bool Table<Row>::isNews(uint32_t id) const {
  // Acquire: who leaves the row aside because of a later turn's removal must not take the writer for quiet.
  uint64_t const version = id < segment_->capacity() ? loadAcquire(segment_->slot(id)) : 0;
  if (!isShadowed()) return version != 0 && sequenceOf(version) >= nextChange_;
  return ((version & versionLive) != 0 ? version : 0) != shadow_.version(id);
}

template <TableRow Row>
void Table<Row>::deliverChange(Change const& change, uint64_t& changes) {
  if (isShadowed()) {
    uint64_t const serial = mountSerial_;
    compareKey(change.key, change.id, changes);
    // Else the row has gone to another key, or the entry's key is damaged.
    if (serial == mountSerial_ && ownSlot(change.id, change.key) == nullptr && isNews(change.id))
      compareRow(change.id, changes);
    return;
  }
  Found found;
  Row row;
  bool const present = findCurrent(change.key, change.id, found, row);
  // A change that is not the key's last one is left to the last one, which is still to come.
  if (present ? sequenceOf(found.version) > change.sequence : !change.removal) return;
  announce(change.key, present ? &row : nullptr, changes);
}

/// Finds the key's row as it is now, in the slot where it most likely is or else through the index. A damaged
/// row is reported, and counts as absent.
template <TableRow Row>
bool Table<Row>::findCurrent(uint64_t const* key, uint32_t likelyId, Found& found, Row& row) {
  try {
    bool isFound = false;
    if (likelyId < segment_->capacity()) {
      found.id = likelyId;
      isFound =
          read(likelyId, found.words, found.version) == RowState::live && Words::equal(key, found.words);
    }
    if (!isFound && !search(Words(key), found)) return false;
    decode(found.words, found.id, row);
    return true;
  } catch (RowDamage const& error) {
    reportCorruption(error.what());
    return false;
  }
}

/// Tells the difference between the key as it is now and as it was shown, if there is one.
template <TableRow Row>
void Table<Row>::compareKey(uint64_t const* key, uint32_t likelyId, uint64_t& changes) {
  Found found;
  Row row;
  if (findCurrent(key, likelyId, found, row)) {
    settle(key, found, row, changes);
  } else if (shadow_.erase(key, likelyId)) {
    announce(key, nullptr, changes);
  }
}

template <TableRow Row>
void Table<Row>::settle(uint64_t const* key, Found const& found, Row const& row, uint64_t& changes) {
  auto const stands = [this](uint32_t id, uint64_t version) {
    return id < segment_->capacity() && loadRelaxed(segment_->slot(id)) == version;
  };
  if (shadow_.show(key, found.id, found.version, stands)) announce(key, &row, changes);
}

template <TableRow Row>
void Table<Row>::announce(uint64_t const* key, Row const* row, uint64_t& changes) {
  std::optional<Key> const decoded = C::decodeKey(key);
  if (!decoded) {
    reportCorruption("the table's change ring is damaged");
    return;
  }
  unpin(key);
  ++changes;
  ++delivered_;
  if (!onChanged) return;
  Pin<Row> pin;
  pin.link(pins_, key, row);
  call(onChanged, *decoded);
}

/// Compares every row with what was shown: versions only, and keys where these differ.
template <TableRow Row>
void Table<Row>::compareAll(uint64_t& changes, DeliverResult& result) {
  constexpr unsigned batch = 32;
  uint64_t const serial = mountSerial_;
  if (!isShadowed()) result.mayHaveMissedRemovals = hasTold_;
  // The number of rows is a hint from shared memory; their ids are bounded.
  uint32_t const ids = segment_->highWater();
  if (isShadowed()) shadow_.reserve(std::min<uint64_t>(loadRelaxed(&segment_->header()->rows), ids), ids);
  auto const end = [this] { return std::max(segment_->highWater(), isShadowed() ? shadow_.homes() : 0); };
  for (uint32_t id = 0; id < end();) {
    uint32_t news[batch];
    unsigned count = 0;
    for (uint32_t const stop = end(); id < stop && count < batch; ++id) {
      prefetchRow(id + batch);
      if (!isNews(id)) continue;
      news[count++] = id;
      if (!isShadowed() || shadow_.version(id) != 0 || id >= segment_->capacity()) continue;
      uint64_t key[keyWordCount];
      for (unsigned i = 0; i < keyWordCount; ++i) key[i] = loadRelaxed(segment_->slot(id) + 2 + i);
      shadow_.prefetchIndex(Words(key));
    }
    for (unsigned i = 0; i < count; ++i) {
      compareRow(news[i], changes);
      if (serial != mountSerial_) return;
    }
  }
  for (uint32_t number = 0; isShadowed() && number < shadow_.strays(); ++number) {
    if (shadow_.stray(number) == nullptr) continue;
    auto const stray = *shadow_.stray(number);
    compareKey(stray.key, noRow, changes);
    if (serial != mountSerial_) return;
  }
}

template <TableRow Row>
void Table<Row>::compareRow(uint32_t id, uint64_t& changes) {
  uint64_t const serial = mountSerial_;
  // What was shown here comes first: most likely it is here still, or gone.
  if (isShadowed() && shadow_.home(id) != nullptr) {
    auto const shown = *shadow_.home(id);
    compareKey(shown.key, id, changes);
    if (serial != mountSerial_ || !isNews(id)) return;
  }
  if (id >= segment_->capacity()) return;
  Found found;
  found.id = id;
  RowState const state = read(id, found.words, found.version);
  Row row;
  if (state == RowState::damaged || (state == RowState::live && !C::decode(found.words, row))) {
    reportCorruption("row " + std::to_string(id) + " is damaged");
    return;
  }
  if (state == RowState::live) {
    isShadowed() ? settle(found.words, found, row, changes) : announce(found.words, &row, changes);
  } else if (!isShadowed() && hasTold_) {
    // A plain reader learns of a removal from what the slot still holds, unless the key lives elsewhere.
    uint64_t key[keyWordCount];
    for (unsigned i = 0; i < keyWordCount; ++i) key[i] = loadAcquire(segment_->slot(id) + 2 + i);
    if (loadAcquire(segment_->slot(id)) == found.version && C::decodeKey(key) &&
        !findCurrent(key, id, found, row)) {
      announce(key, nullptr, changes);
    }
  }
}

}  // namespace Brine
