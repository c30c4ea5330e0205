#include "Brine/TableBase.h"

#include <algorithm>
#include <cstddef>
#include <thread>
#include <utility>

#include "Brine/system/Folder.h"

namespace Brine {

TableBase::TableBase(RowShape const& shape) : shape_(shape) {}

TableBase::~TableBase() {
  // Derived parts are gone, so nothing is told.
  onQuiesced = nullptr;
  onMountStatus = nullptr;
  if (isWritable()) writer_->sayGoodbye();
  if (claim_) claim_->segmentIs(nullptr);
}

MountStatus TableBase::mount(MountOptions const& options) {
  requireUnmounted();
  reportQuiesced(false);
  options_ = options;
  raisedByHook_ = nullptr;
  ++mountSerial_;
  try {
    if (options.mode == Mode::writer) {
      mountWriter();
    } else {
      watch_ = std::make_unique<Watch>(options_.directory, Folder::tableFileOf(options_.name));
      // Before a hook may raise.
      watch_->kick();
      attachReader();
    }
  } catch (MountFailure const& failure) {
    if (isOfHook()) throw;
    detach();
    setStatus(failure.status(), failure.what());
  } catch (std::bad_alloc const&) {
    if (isOfHook()) throw;
    detach();
    watch_.reset();
    setStatus(MountStatus::noResources, "out of memory");
  }
  return status_;
}

void TableBase::requireUnmounted() const {
  if (segment_ || watch_) {
    throw StateError(options_.name + " is already mounted, mountStatus:" + std::string(toText(status_)));
  }
}

MountStatus TableBase::mountImage(std::span<std::byte const> image, Mode mode) {
  requireUnmounted();
  options_ = {};
  options_.mode = mode == Mode::writer ? Mode::reader : mode;
  ++mountSerial_;
  try {
    auto segment = std::make_unique<Segment>(shape_, image);
    // First: it may run out of memory.
    attach(*segment);
    segment_ = std::move(segment);
  } catch (MountFailure const& failure) {
    setStatus(failure.status(), failure.what());
    return status_;
  } catch (std::bad_alloc const&) {
    setStatus(MountStatus::noResources, "out of memory");
    return status_;
  }
  compareAll_ = true;
  setStatus(MountStatus::mounted, {});
  return status_;
}

void TableBase::unmount() {
  if (status_ == MountStatus::unmounted) return;
  endTurn();
  ++mountSerial_;
  detach();
  watch_.reset();
  setStatus(MountStatus::unmounted, {});
  if (status_ == MountStatus::unmounted) reportQuiesced(false);
}

void TableBase::detach() {
  if (isWritable()) writer_->sayGoodbye();
  if (claim_) claim_->segmentIs(nullptr);
  writer_.reset();
  segment_.reset();
  file_.reset();
  claim_.reset();
  compareAll_ = false;
}

void TableBase::mountWriter() {
  Folder const folder(options_.directory, options_.name, true);
  claim_ = std::make_unique<Claim>(folder);
  try {
    openOrMake(folder);
  } catch (MountFailure const& failure) {
    folder.removeNew();
    throw;
  }
  claim_->segmentIs(segment_.get());
  attach(*segment_);
  setStatus(MountStatus::mounted, {});
  if (writer_) reportQuiesced(writer_->isQuiet());
}

void TableBase::openOrMake(Folder const& folder) {
  Fd old = folder.openTable(true);
  if (old) {
    try {
      claim_->tableIs(std::move(old));
      segment_ = std::make_unique<Segment>(shape_, claim_->table(), true, options_.repair);
      // The lock says who may write; this catches a lock file that was removed under a running writer.
      if (writerLiveness() == Liveness::alive &&
          loadAcquire(&segment_->header()->writerProcess) != ProcessIdentity::self().number) {
        throw MountFailure(MountStatus::busy, "another process writes the table without its lock");
      }
      writer_ = std::make_unique<Writer>(*segment_, *claim_);
      writer_->recover(options_.repair);
      return;
    } catch (MountFailure const& failure) {
      writer_.reset();
      bool const replace = options_.repair && (failure.status() == MountStatus::corrupt ||
                                               failure.status() == MountStatus::incompatible);
      if (!replace) throw;
      segment_.reset();
    } catch (...) {
      // It has signed, perhaps, but is not one that may say goodbye.
      writer_.reset();
      throw;
    }
  }
  Fd made = folder.openNew();
  Segment::format(shape_, made.get(), options_.initialRows, options_.ringEntries);
  Fd const replaced = claim_->releaseTable();
  claim_->tableIs(std::move(made));
  segment_ = std::make_unique<Segment>(shape_, claim_->table(), true);
  writer_ = std::make_unique<Writer>(*segment_, *claim_);
  writer_->recover(false);
  folder.publishNew();
  // Readers of the old file look for the new one. They also see the directory change, should this not come to
  // be.
  uint64_t const retired = 1;
  if (replaced) sys.writeAt(replaced.get(), &retired, sizeof retired, offsetof(Header, retired));
}

void TableBase::attachReader() {
  Folder const folder(options_.directory, options_.name, false);
  Fd file;
  // Between the opening and the watching of a name another file may take it.
  for (int attempt = 0; attempt < 8; ++attempt) {
    file = folder.openTable(false);
    if (!file)
      throw MountFailure(MountStatus::noTable,
                         "no writer has made " + folder.path() + "/" + folder.tableFile());
    watch_->watchTable();
    if (folder.isTable(file.get())) break;
  }
  auto segment = std::make_unique<Segment>(shape_, file.get(), false);
  // First: it may run out of memory.
  attach(*segment);
  segment_ = std::move(segment);
  file_ = std::move(file);
  incarnation_ = loadAcquire(&segment_->header()->incarnation);
  compareAll_ = true;
  successorFailed_ = false;
  judgeWriter(writerLiveness() == Liveness::ended);
}

void TableBase::attach(Segment const& segment) {
  onAttached(segment.generation() == generation_);
  generation_ = segment.generation();
}

bool TableBase::isReplaced() {
  successorFailed_ = false;
  try {
    Folder const folder(options_.directory, options_.name, false);
    Fd const file = folder.openTable(false);
    return file && !folder.isTable(file_.get());
  } catch (MountFailure const& failure) {
    if (failure.status() != MountStatus::noResources) return false;
    // To be asked again.
    successorFailed_ = true;
    throw;
  }
}

bool TableBase::beginDelivery() {
  if (!watch_) return segment_ != nullptr;
  try {
    WatchEvents const events = watch_->take();
    if (!segment_) {
      attachReader();
    } else if ((events.renamed || successorFailed_ || loadAcquire(&segment_->header()->retired) != 0) &&
               isReplaced()) {
      successorFailed_ = true;
      attachReader();
    } else {
      followWriter(events);
    }
    if (segment_) segment_->follow();
    if (segment_ && status_ == MountStatus::noResources) judgeWriter(writerLiveness() == Liveness::ended);
  } catch (MountFailure const& failure) {
    if (isOfHook()) throw;
    // What is mounted stays mounted: a successor that cannot be used does not take the rows away.
    if (!segment_ || failure.status() == MountStatus::noResources) {
      setStatus(failure.status(), failure.what());
      reportQuiesced(false);
    }
  } catch (SpaceError const& error) {
    if (isOfHook()) throw;
    // The table has grown beyond what can be mapped: what is mapped can be read, but not brought up to date.
    setStatus(MountStatus::noResources, error.what());
    reportQuiesced(false);
    return false;
  }
  return segment_ != nullptr;
}

void TableBase::followWriter(WatchEvents const& events) {
  uint64_t const incarnation = loadAcquire(&segment_->header()->incarnation);
  bool const another = std::exchange(incarnation_, incarnation) != incarnation;
  if (another) compareAll_ = true;
  // Events are older than what the header says, and anybody may close a file: the writer itself is looked at.
  bool const isAsked = events.writerClosed || events.mustLook || another;
  if (status_ == MountStatus::mounted && isAsked) {
    Liveness const liveness = writerLiveness();
    judgeWriter(liveness == Liveness::ended || (liveness == Liveness::unknown && events.writerClosed));
  } else if (status_ == MountStatus::writerGone && (isAsked || events.rung)) {
    Liveness const liveness = writerLiveness();
    bool const isNew = another || (events.rung && !events.writerClosed);
    if (liveness == Liveness::alive || (liveness == Liveness::unknown && isNew)) judgeWriter(false);
  }
}

void TableBase::judgeWriter(bool hasEnded) {
  // It may have died with changes made but not published.
  if (hasEnded) compareAll_ = true;
  setStatus(hasEnded ? MountStatus::writerGone : MountStatus::mounted,
            hasEnded ? "the table's writer has ended" : "");
}

Liveness TableBase::writerLiveness() const {
  Header const* const header = segment_->header();
  ProcessIdentity writer;
  writer.number = loadAcquire(&header->writerProcess);
  writer.start = loadAcquire(&header->writerStart);
  writer.space = loadAcquire(&header->writerSpace);
  if (writer.number == 0) return Liveness::ended;
  struct stat status {};
  int const fd = claim_ ? claim_->table() : file_.get();
  if (fd < 0 || sys.status(fd, &status) != 0) return Liveness::unknown;
  // A copy of a file has no writer, whatever the original's is doing.
  if (status.st_ino != loadAcquire(&header->writerFile)) return Liveness::ended;
  Liveness const liveness = livenessOf(writer);
  // Its process may have executed another program, or cannot be seen from here.
  if (liveness == Liveness::ended || loadAcquire(&header->writerMarked) == 0) return liveness;
  return Claim::isMarked(fd) ? Liveness::alive : Liveness::ended;
}

void TableBase::setStatus(MountStatus status, std::string detail) {
  detail_ = std::move(detail);
  if (status == status_) return;
  status_ = status;
  call(onMountStatus);
}

void TableBase::endTurn() {
  if (!isWritable()) return;
  // First: what the hook writes is of this turn.
  if (std::string const damage = writer_->takeDamage(); !damage.empty()) reportCorruption(damage);
  if (isWritable() && writer_->endTurn()) reportQuiesced(true);
}

void TableBase::recover() {
  requireWritable("recovery");
  writer_->recover(true);
  reportQuiesced(true);
}

void TableBase::onDeliveryRaised() {
  if (!isOfHook()) {
    compareAll_ = true;
    try {
      throw;
    } catch (CorruptionError const& error) {
      return reportCorruption(error.what());
    } catch (SpaceError const& error) {
      setStatus(MountStatus::noResources, error.what());
      return reportQuiesced(false);
    } catch (...) {
    }
  }
  // The events were taken, but not all that they stand for was told.
  if (watch_) watch_->kick();
  throw;
}

void TableBase::reportQuiesced(bool quiesced) {
  if (quiesced == quiesced_) return;
  quiesced_ = quiesced;
  call(onQuiesced, quiesced);
}

void TableBase::reportCorruption(std::string const& message) {
  ++corruptions_;
  if (onCorruption) onCorruption(message);
}

void TableBase::throwReadOnly(char const* what) {
  throw ReadOnlyError(std::string(what) + " to read-only Brine table");
}

Statistics TableBase::statistics() const {
  Statistics result;
  result.delivered = delivered_;
  result.laps = laps_;
  result.corruptions = corruptions_;
  result.quiesced = quiesced_;
  if (!segment_) return result;
  Header const* const header = segment_->header();
  result.rows = writer_ ? writer_->rows() : loadAcquire(&header->rows);
  result.capacity = segment_->capacity();
  result.fileBytes = segment_->fileBytes();
  result.generation = segment_->generation();
  result.incarnation = loadAcquire(&header->incarnation);
  result.changeSequence = loadAcquire(&header->head);
  result.dropped = loadAcquire(&header->dropped);
  result.writerAlive = writer_ || writerLiveness() != Liveness::ended;
  result.wakes = writer_ ? writer_->wakes() : 0;
  result.shadowKeys = shadowKeys();
  return result;
}

std::vector<Violation> TableBase::check() const {
  if (!segment_) return {};
  constexpr int passes = 5;
  std::vector<Violation> lasting;
  for (int pass = 0; pass < passes; ++pass) {
    try {
      segment_->follow();
    } catch (CorruptionError const&) {
      // The check names it.
    }
    // Beside a writer only what always holds; and one that died in the middle of a change leaves what the
    // next mount tidies up.
    bool const tidy = writer_ ? writer_->isQuiet() : loadAcquire(&segment_->header()->writerProcess) == 0;
    std::vector<Violation> const found = checkSegment(*segment_, tidy);
    if (pass == 0) {
      lasting = found;
    } else {
      std::erase_if(lasting, [&](Violation const& violation) {
        return std::find(found.begin(), found.end(), violation) == found.end();
      });
    }
    if (lasting.empty() || writer_ || !watch_) break;
    std::this_thread::yield();
  }
  return lasting;
}

}  // namespace Brine
