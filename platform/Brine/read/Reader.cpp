#include "Brine/read/Reader.h"

#include <utility>

#include "Brine/Errors.h"

namespace Brine {

Reader::Reader(RowShape const& shape, MountOptions const& options, Mounted& mounted)
    : shape_(shape),
      options_(options),
      mounted_(mounted),
      watch_(options.directory, Folder::tableFileOf(options.name)) {}

Reader::Outlook Reader::look(MountStatus status) {
  Outlook outlook{status, {}};
  try {
    takeEvents(outlook);
  } catch (MountFailure const& failure) {
    // What is mounted stays mounted: a successor that cannot be used does not take the rows away.
    if (!mounted_.segment || failure.status() == MountStatus::noResources)
      return {failure.status(), failure.what()};
  } catch (SpaceError const& error) {
    // The table has grown beyond what can be mapped: what is mapped can be read, but not brought up to date.
    return {MountStatus::noResources, error.what(), outlook.mustCompareAll, true};
  }
  return outlook;
}

void Reader::takeEvents(Outlook& outlook) {
  WatchEvents const events = watch_.take();
  bool const mayBeReplaced = events.renamed || outlook.status == MountStatus::noResources;
  bool const isOther = !mounted_.segment || (mayBeReplaced && isReplaced());
  isOther ? attach() : followWriter(events, outlook);
  outlook.mustCompareAll |= isOther;
  try {
    mounted_.segment->follow();
  } catch (CorruptionError const&) {
    // Who reads rows comes upon it.
  }
  if (isOther || outlook.status == MountStatus::noResources)
    judgeWriter(mounted_.writerLiveness() == Liveness::ended, outlook);
}

void Reader::attach() {
  Folder const folder(options_.directory, options_.name, false);
  Fd file;
  // Between the opening and the watching of a name another file may take it.
  for (int attempt = 0; attempt < 8; ++attempt) {
    file = folder.openTable(false);
    if (!file) throw MountFailure(MountStatus::noTable, "no writer has made " + folder.tablePath());
    watch_.watchTable();
    if (folder.isTable(file.get())) break;
  }
  mounted_.segmentIs(std::make_unique<Segment>(shape_, file.get(), false), file.get());
  file_ = std::move(file);
  incarnation_ = loadAcquire(&mounted_.segment->header()->incarnation);
}

bool Reader::isReplaced() const {
  try {
    Folder const folder(options_.directory, options_.name, false);
    return folder.openTable(false) && !folder.isTable(file_.get());
  } catch (MountFailure const& failure) {
    if (failure.status() == MountStatus::noResources) throw;
    return false;
  }
}

void Reader::followWriter(WatchEvents const& events, Outlook& outlook) {
  uint64_t const incarnation = loadAcquire(&mounted_.segment->header()->incarnation);
  bool const another = std::exchange(incarnation_, incarnation) != incarnation;
  outlook.mustCompareAll = another;
  bool const wasGone = outlook.status == MountStatus::writerGone;
  if (!events.writerClosed && !events.mustLook && !another && !(wasGone && events.rung)) return;
  // Events are older than what the file shows, and anybody may close it: they count where its mark does not.
  Liveness const liveness = mounted_.writerLiveness();
  bool const seemsGone = events.writerClosed || (wasGone && !another && !events.rung);
  bool const isGone = liveness == Liveness::ended || (liveness == Liveness::unknown && seemsGone);
  // A mark goes a moment after its file was closed.
  if (events.writerClosed && !isGone) kick();
  if (isGone != wasGone) judgeWriter(isGone, outlook);
}

void Reader::judgeWriter(bool hasEnded, Outlook& outlook) const {
  // It may have died with changes made but not published.
  if (hasEnded) outlook.mustCompareAll = true;
  outlook.status = hasEnded ? MountStatus::writerGone : MountStatus::mounted;
  outlook.detail = hasEnded ? "the table's writer has ended" : "";
}

}  // namespace Brine
