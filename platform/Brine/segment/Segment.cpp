#include "Brine/segment/Segment.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "Brine/Errors.h"

namespace Brine {
namespace {

MountFailure corrupt(std::string const& what) { return {MountStatus::corrupt, what}; }

/// Copies the identity lines, which nobody writes after creation, word by word.
Header readIdentity(std::byte const* page) {
  Header header{};
  uint64_t words[offsetof(Header, incarnation) / 8];
  auto const* const from = static_cast<uint64_t const*>(static_cast<void const*>(page));
  for (size_t i = 0; i < std::size(words); ++i) words[i] = loadRelaxed(from + i);
  std::memcpy(&header, words, sizeof words);
  return header;
}

/// Lays a stretch of a file that is all hole into huge pages, as far as the system gives them: random access
/// then misses the processor's address tables less, and there are fewer pages to make and to map. Whatever
/// fails here is left to those who reserve and touch the space.
void preferHugePages(int fd, uint64_t offset, uint64_t size) {
  uint64_t const first = (offset + hugePageBytes - 1) / hugePageBytes * hugePageBytes;
  uint64_t const end = (offset + size) / hugePageBytes * hugePageBytes;
  if (first >= end) return;
  // A huge page is made of at least one page, and within the file.
  for (uint64_t page = first; page < end; page += hugePageBytes) {
    if (sys.allocate(fd, static_cast<off_t>(page), pageBytes) != 0) return;
  }
  if (sys.allocate(fd, static_cast<off_t>(end - pageBytes), pageBytes) != 0) return;
  void* const address = sys.map(end - first, PROT_READ | PROT_WRITE, fd, static_cast<off_t>(first));
  if (address == MAP_FAILED) return;
  sys.advise(address, end - first, collapseIntoHugePages);
  sys.unmap(address, end - first);
}

/// Reserves in pieces: a signal undoes the piece under way, and a large one might never get through.
int reserve(int fd, uint64_t offset, uint64_t size) {
  constexpr uint64_t pieceBytes = uint64_t{1} << 20;
  while (size != 0) {
    uint64_t const piece = std::min(size, pieceBytes);
    int const error = sys.allocate(fd, static_cast<off_t>(offset), static_cast<off_t>(piece));
    if (error == EINTR) continue;
    if (error != 0) return error;
    offset += piece;
    size -= piece;
  }
  return 0;
}

}  // namespace

uint64_t sequenceByClock() {
  auto const now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::nanoseconds(now).count());
}

uint64_t identityCheckOf(Header const& header) {
  uint64_t words[offsetof(Header, incarnation) / 8];
  std::memcpy(words, &header, sizeof words);
  words[offsetof(Header, identityCheck) / 8] = 0;
  // The same start for every layout, so that one of another version is not taken for damaged.
  uint64_t sum = 4;
  for (uint64_t const word : words) sum = mixWords(sum ^ word, 0xE7037ED1A0B428DBU) + 0x8EBC6AF09C88C6E3U;
  return sum;
}

Segment::Segment(RowShape const& shape, int fd, bool writable, bool repair)
    : shape_(shape), fd_(fd), writable_(writable) {
  attach(repair);
}

Segment::Segment(RowShape const& shape, std::span<std::byte const> image) : shape_(shape), image_(image) {
  attach(false);
}

void Segment::format(RowShape const& shape, int fd, uint32_t initialRows, uint32_t ringEntries) {
  Layout const layout(initialRows, ringEntries, shape.keyWords, shape.rowWords);
  if (!layout.isPlausible())
    throw MountFailure(MountStatus::incompatible, "unusable initial sizes of a table");
  preferHugePages(fd, 0, layout.fileBytes(0));
  if (int const error = reserve(fd, 0, layout.fileBytes(0)); error != 0) {
    throw MountFailure::ofErrno(error, "reserving space for the table");
  }
  uint64_t random[2];
  if (::getentropy(random, sizeof random) != 0) throw MountFailure::ofErrno(errno, "drawing random numbers");
  Header header{};
  header.magic = magicNumber;
  header.fingerprint = shape.fingerprint();
  header.seed = random[0];
  header.generation = random[1];
  // Later tables of a name begin behind all changes of earlier ones.
  header.firstSequence = sequenceByClock();
  header.initialRows = initialRows;
  header.ringEntries = ringEntries;
  header.keyWords = shape.keyWords;
  header.rowWords = shape.rowWords;
  shape.rowType.copy(header.rowType, sizeof header.rowType);
  header.identityCheck = identityCheckOf(header);
  header.geometry = sealWord(header.seed, geometryPlace, Geometry{}.payload());
  header.highWater = sealWord(header.seed, highWaterPlace, 0);
  header.head = header.quiet = header.firstSequence;
  if (sys.writeAt(fd, &header, sizeof header, 0) < 0)
    throw MountFailure::ofErrno(errno, "writing the table's header");
}

void Segment::attach(bool repair) {
  if (size() < pageBytes) throw corrupt("the file is shorter than a table's header");
  if (wordAt(0) != magicNumber) throw corrupt("the file is not a table");
  std::byte* const page = map(0, pageBytes);
  Header const identity = readIdentity(page);
  if (identity.identityCheck != identityCheckOf(identity)) throw corrupt("the table's header is damaged");
  if (identity.fingerprint != shape_.fingerprint()) {
    std::string const found(identity.rowType, strnlen(identity.rowType, sizeof identity.rowType));
    throw MountFailure(MountStatus::incompatible, found == shape_.rowType
                                                      ? "the table's layout is of another version"
                                                      : "the table holds " + found + " rows");
  }
  layout_ = Layout(identity.initialRows, identity.ringEntries, identity.keyWords, identity.rowWords);
  if (!layout_.isPlausible() || layout_.keyWords() != shape_.keyWords ||
      identity.rowWords != shape_.rowWords) {
    throw corrupt("the table's header gives impossible sizes");
  }
  if (size() < layout_.fileBytes(0)) throw corrupt("the file is shorter than its table");
  header_ = static_cast<Header*>(static_cast<void*>(page));
  seed_ = identity.seed;
  generation_ = identity.generation;
  shift_ = static_cast<unsigned>(std::countr_zero(layout_.initialRows()));
  slotBytes_ = uintptr_t{layout_.rowStride()} * sizeof(uint64_t);
  auto* const ring = map(layout_.ringOffset(), layout_.extentOffset(0) - layout_.ringOffset());
  ring_ = Ring(static_cast<uint64_t*>(static_cast<void*>(ring)), layout_);
  try {
    useGeometry(writable_ ? trustedGeometry(repair) : loadAcquire(&header_->geometry));
  } catch (CorruptionError const& error) {
    throw corrupt(error.what());
  } catch (SpaceError const& error) {
    throw MountFailure(MountStatus::noResources, error.what());
  }
}

/// The geometry word, or with `repair` what the file's size says in the place of one that is damaged or of
/// an earlier moment. It is not stored here: readers raise while the word is damaged, and take no index for
/// empty that is still to be made.
uint64_t Segment::trustedGeometry(bool repair) const {
  uint64_t const word = loadRelaxed(&header_->geometry);
  auto geometry = Geometry::ofPayload(static_cast<uint32_t>(word));
  bool const isEarlier = isSealed(seed_, geometryPlace, word) && reachesBeyond(geometry.level);
  if (isEarlier && !repair) throw corrupt("the table's geometry is of an earlier moment");
  if (!repair || (!isEarlier && isSealed(seed_, geometryPlace, word))) return word;
  geometry = {0, 0, static_cast<uint32_t>(sequenceByClock())};
  while (geometry.level < layout_.maxLevel() && layout_.fileBytes(geometry.level + 1) <= size())
    ++geometry.level;
  return sealWord(seed_, geometryPlace, geometry.payload());
}

/// Whether there is more behind the extents of that level than a growth leaves that was cut short: a row, and
/// their slots are taken in order, or more space than one growth adds.
bool Segment::reachesBeyond(unsigned level) const {
  uint64_t const bytes = size();
  if (level >= layout_.maxLevel() || bytes <= layout_.fileBytes(level)) return false;
  return bytes > layout_.fileBytes(level + 1) || wordAt(layout_.extentOffset(level + 1)) != 0;
}

struct stat Segment::status() const {
  struct stat status {};
  status.st_size = static_cast<off_t>(image_.size());
  if (fd_ >= 0 && sys.status(fd_, &status) != 0) throw MountFailure::ofErrno(errno, "looking at the table");
  return status;
}

/// Read, not mapped: the first touch of a hole may be a fault.
uint64_t Segment::wordAt(uint64_t offset) const {
  uint64_t word = 0;
  if (fd_ < 0) return loadRelaxed(static_cast<uint64_t const*>(static_cast<void const*>(&image_[offset])));
  if (sys.readAt(fd_, &word, sizeof word, static_cast<off_t>(offset)) < 0)
    throw MountFailure::ofErrno(errno, "reading the table");
  return word;
}

/// The file was long enough when the writer published that it is; and it had no holes then.
void Segment::requireBytes(uint64_t bytes) const {
  struct stat const status = this->status();
  if (static_cast<uint64_t>(status.st_size) < bytes)
    throw CorruptionError("the file is shorter than its table");
  constexpr uint64_t blockBytes = 512;
  if (fd_ >= 0 && !writable_ && static_cast<uint64_t>(status.st_blocks) * blockBytes < bytes)
    throw CorruptionError("the file has holes, which its next writer fills");
}

std::byte* Segment::map(uint64_t offset, uint64_t size) {
  if (fd_ < 0) return const_cast<std::byte*>(image_.data()) + offset;
  void* const address =
      sys.map(size, writable_ ? PROT_READ | PROT_WRITE : PROT_READ, fd_, static_cast<off_t>(offset));
  if (address == MAP_FAILED) throw MountFailure::ofErrno(errno, "mapping the table");
  pieces_.emplace_back(address, Unmap{size});
  return static_cast<std::byte*>(address);
}

void Segment::mapExtent(unsigned extent) {
  std::byte* const base = map(layout_.extentOffset(extent), layout_.extentBytes(extent));
  extents_[extent] = base;
  auto const first = uintptr_t{layout_.extentFirst(extent)};
  slotBase_[extent] = std::bit_cast<uintptr_t>(base) - first * slotBytes_;
  auto* const low = static_cast<uint8_t*>(static_cast<void*>(base + layout_.columnOffset(extent)));
  columns_[extent] = Column(low, low + layout_.columnBytes(extent), layout_.extentFirst(extent));
  extentCount_ = extent + 1;
}

bool Segment::useGeometry(uint64_t word) {
  auto const geometry = Geometry::ofPayload(static_cast<uint32_t>(word));
  if (!isSealed(seed_, geometryPlace, word) || geometry.level > layout_.maxLevel()) {
    throw CorruptionError("the table's geometry is damaged");
  }
  try {
    if (geometry.level + 1 > extentCount_) requireBytes(layout_.fileBytes(geometry.level));
    while (extentCount_ <= geometry.level) mapExtent(extentCount_);
  } catch (MountFailure const& failure) {
    throw SpaceError(failure.what());
  }
  geometry_ = geometry;
  geometryWord_ = word;
  capacity_ = layout_.capacity(geometry.level);
  index_ = indexAt(geometry.level, geometry.half);
  return true;
}

uint32_t Segment::highWater() const {
  uint64_t const word = loadAcquire(&header_->highWater);
  if (!isSealed(seed_, highWaterPlace, word)) throw CorruptionError("the table's high-water mark is damaged");
  // May be of a level that is not followed yet.
  return std::min(static_cast<uint32_t>(word), capacity_);
}

uint32_t Segment::trustedHighWater(bool repair) const {
  uint64_t const word = loadRelaxed(&header_->highWater);
  auto const mark = static_cast<uint32_t>(word);
  char const* damage = nullptr;
  if (!isSealed(seed_, highWaterPlace, word)) {
    damage = "the table's high-water mark is damaged";
  } else if (mark > capacity_ || (mark < capacity_ && loadRelaxed(slot(mark)) != 0)) {
    // Slots are taken in order, so the first one behind it tells.
    damage = "the table's high-water mark is of an earlier moment";
  }
  if (damage == nullptr) return mark;
  if (!repair) throw corrupt(damage);
  return capacity_;
}

Index Segment::indexAt(unsigned level, unsigned half) const {
  std::byte* const base = extents_[level] + layout_.indexOffset(level, half);
  return {static_cast<uint64_t*>(static_cast<void*>(base)), layout_.indexLines(level)};
}

void Segment::secureSpace() {
  for (; extentCount_ > geometry_.level + 1; --extentCount_) pieces_.pop_back();
  keptBytes_ = size();
  // The doorbell's write, too, would end a process that may not write as much.
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < pageBytes)
    throw MountFailure(MountStatus::noSpace, "the process may not write files of a page");
  bool populated = true;
  for (auto const& piece : pieces_)
    populated &= sys.advise(piece.get(), piece.get_deleter().size, populateForWriting) == 0;
  // A file that was copied may have holes, which a full file system would turn into a fault at the first
  // touch.
  int const error = populated ? 0 : reserve(fd_, 0, fileBytes());
  if (error != 0) throw MountFailure::ofErrno(error, "reserving space for the table");
}

void Segment::addExtent() {
  unsigned const extent = geometry_.level + 1;
  if (extent > layout_.maxLevel()) throw SpaceError("the table cannot hold more rows");
  if (extentCount_ > extent) return;  // Left by a growth that failed later on.
  uint64_t const bytes = layout_.extentBytes(extent);
  preferHugePages(fd_, fileBytes(), bytes);
  if (int const error = reserve(fd_, fileBytes(), bytes); error != 0) {
    undoGrowth();
    throw SpaceError("the table cannot grow: " +
                     std::string(MountFailure::ofErrno(error, "reserving space").what()));
  }
  try {
    mapExtent(extent);
  } catch (MountFailure const& failure) {
    undoGrowth();
    throw SpaceError("the table cannot grow: " + std::string(failure.what()));
  }
  sys.advise(extents_[extent], bytes, populateForWriting);
  clearColumn(capacity_, layout_.capacity(extent));
}

/// Gives back the space that a growth took, and no more: readers may have mapped what the file had before.
void Segment::undoGrowth() const { sys.truncate(fd_, static_cast<off_t>(std::max(fileBytes(), keptBytes_))); }

void Segment::clearColumn(uint32_t from, uint32_t to) const {
  for (uint32_t id = from; id < to; ++id) {
    if (column(id).word(id) != noColumn) column(id).wordIs(id, noColumn);
  }
}

Geometry Segment::nextGeometry(unsigned level) const {
  return {level, level == geometry_.level ? 1 - geometry_.half : 0, geometry_.epoch + 1};
}

Index Segment::spareIndex(unsigned level) {
  // Readers look only into the index that the geometry word names, and again at that word when they miss. Who
  // still stands in this one and misses what is cleared, release, sees that the word has named another since.
  Index index = indexAt(level, nextGeometry(level).half);
  index.clear();
  return index;
}

void Segment::publishSpare(unsigned level) {
  uint64_t const word = sealWord(seed_, geometryPlace, nextGeometry(level).payload());
  storeRelease(&header_->geometry, word);
  useGeometry(word);
}

void Segment::publishHighWater(uint32_t id) const {
  storeRelease(&header_->highWater, sealWord(seed_, highWaterPlace, id));
}

}  // namespace Brine
