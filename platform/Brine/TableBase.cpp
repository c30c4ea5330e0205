#include "Brine/TableBase.h"

#include <new>
#include <utility>

namespace Brine {

TableBase::~TableBase() = default;

/// Takes on `image`, or where it is null the table that the options name.
MountStatus TableBase::begin(MountOptions const& options, std::span<std::byte const> const* image) {
  if (mounted_.segment || reader_ || writer_)
    throw StateError(options_.name + " is already mounted, mountStatus:" + std::string(toText(status_)));
  reportQuiesced(false);
  options_ = options;
  mustCompareAll_ = true;
  Reader::Outlook outlook{MountStatus::mounted, {}};
  try {
    if (image != nullptr) {
      mounted_.segmentIs(std::make_unique<Segment>(shape_, *image), -1);
    } else if (options_.mode == Mode::writer) {
      Folder const folder(options_.directory, options_.name, true);
      writer_ = std::make_unique<Writer>(shape_, options_, mounted_, folder);
    } else {
      reader_ = std::make_unique<Reader>(shape_, options_, mounted_);
      outlook = reader_->look(MountStatus::unmounted);
      reader_->kick();  // The first delivery has everything to tell.
    }
    if (mounted_.segment) handleSegment();
  } catch (MountFailure const& failure) {
    end();
    outlook = {failure.status(), failure.what()};
  } catch (std::bad_alloc const&) {
    end();
    outlook = {MountStatus::noResources, "out of memory"};
  }
  setStatus(outlook.status, std::move(outlook.detail));
  if (writer_) reportQuiesced(writer_->isQuiet());
  return status_;
}

void TableBase::unmount() {
  if (status_ == MountStatus::unmounted) return;
  endTurn();
  end();
  setStatus(MountStatus::unmounted, {});
  if (status_ == MountStatus::unmounted) reportQuiesced(false);
}

void TableBase::end() {
  writer_.reset();
  reader_.reset();
  mounted_.letGo();
  handleSegment();
}

bool TableBase::look() {
  if (!reader_) return mounted_.segment != nullptr;
  uint64_t const serial = mounted_.serial;
  Reader::Outlook outlook = reader_->look(status_);
  if (serial != mounted_.serial) handleSegment();
  mustCompareAll_ |= outlook.mustCompareAll;
  bool const canBeTold = !outlook.isStuck;
  setStatus(outlook.status, std::move(outlook.detail));
  // The hook may have unmounted the table, or mounted it as writer.
  if (!Brine::isReadable(status_)) reportQuiesced(false);
  return canBeTold && reader_ && mounted_.segment;
}

void TableBase::setStatus(MountStatus status, std::string detail) {
  detail_ = std::move(detail);
  if (status == status_) return;
  status_ = status;
  call(onMountStatus);
}

void TableBase::changed() {
  if (options_.turns) {
    if (!writer_->isQuiet()) reportQuiesced(false);
  } else if (openTurns_ == 0) {
    endTurn();
  }
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

void TableBase::reportQuiesced(bool quiesced) {
  if (quiesced == figures_.quiesced) return;
  figures_.quiesced = quiesced;
  call(onQuiesced, quiesced);
}

void TableBase::reportCorruption(std::string const& message) {
  if (onCorruption) onCorruption(message);
}

void TableBase::throwReadOnly(char const* what) {
  throw ReadOnlyError(std::string(what) + " to read-only Brine table");
}

Statistics TableBase::statistics() const {
  Statistics result = figures_;
  if (!mounted_.segment) return result;
  Header const* const header = mounted_.segment->header();
  result.rows = writer_ ? writer_->rows() : loadAcquire(&header->rows);
  result.capacity = mounted_.segment->capacity();
  result.fileBytes = mounted_.segment->fileBytes();
  result.generation = mounted_.segment->generation();
  result.incarnation = loadAcquire(&header->incarnation);
  result.changeSequence = loadAcquire(&header->head);
  uint64_t const mountHead = loadAcquire(&header->mountHead);
  result.changes =
      mountHead != 0 && mountHead <= result.changeSequence ? result.changeSequence - mountHead : 0;
  result.dropped = loadAcquire(&header->dropped);
  result.writerAlive = writer_ || mounted_.writerLiveness() != Liveness::ended;
  result.wakes = loadRelaxed(&header->doorbell);
  return result;
}

std::vector<Violation> TableBase::check() const {
  if (!mounted_.segment) return {};
  try {
    mounted_.segment->follow();
  } catch (CorruptionError const&) {
    // The check names it.
  }
  // Beside a writer only what always holds; and one that died in the middle of a change leaves what the next
  // mount tidies up.
  bool const isTidy = writer_ ? writer_->isQuiet() : loadAcquire(&mounted_.segment->header()->writer) == 0;
  return checkSegment(*mounted_.segment, isTidy);
}

}  // namespace Brine
