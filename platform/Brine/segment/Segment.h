#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "Brine/Codec.h"
#include "Brine/layout/Layout.h"
#include "Brine/layout/Word.h"
#include "Brine/rows/Column.h"
#include "Brine/rows/Index.h"
#include "Brine/rows/Ring.h"
#include "Brine/system/System.h"

namespace Brine {

/// The check of a header's identity lines, to be compared with, or stored as, their `identityCheck`.
uint64_t identityCheckOf(Header const& header);

/// A sequence number that no change bore before now, in any table whatever became of its file, as long as the
/// clock does not step back: nobody writes faster than a change a nanosecond.
uint64_t sequenceByClock();

/// A table's file in memory: the checked header, and each extent mapped where it stays until the segment
/// goes, so that no pointer into a table goes stale while it grows.
///
/// Nothing read from the file is used before it is bounded: sizes come from the header only after its check
/// and against the size of the file, ids are compared with `capacity()`. A file with holes is refused to
/// readers, since on a full file system the first touch of a hole is a fault. What that cannot rule out is a
/// file that its owner truncates while it is mapped; the engine itself takes away nothing that a reader may
/// have mapped.
class Segment {
 public:
  /// Maps the file `fd`, which must stay open only for `follow()` and growth. Raises `MountFailure`. With
  /// `repair`, a geometry word that is damaged, or of an earlier moment, is taken from the file's size
  /// instead, until `publishSpare()` writes one.
  Segment(RowShape const& shape, int fd, bool writable, bool repair = false);
  /// Uses `image` in place of a file, read-only. Raises `MountFailure`.
  Segment(RowShape const& shape, std::span<std::byte const> image);
  Segment(Segment const&) = delete;
  Segment& operator=(Segment const&) = delete;

  /// Makes `fd`, an empty file, an empty table, all space for it reserved; its first recovery makes the
  /// column. Raises `MountFailure`.
  static void format(RowShape const& shape, int fd, uint32_t initialRows, uint32_t ringEntries);

  RowShape const& shape() const { return shape_; }
  Layout const& layout() const { return layout_; }
  Header* header() const { return header_; }
  uint64_t seed() const { return seed_; }
  uint64_t generation() const { return generation_; }

  /// Reader: catches up with growth and recovery. Returns true if the index is another one than at the last
  /// call. Raises `CorruptionError` for a geometry that no writer wrote, `SpaceError` if memory cannot be
  /// mapped.
  bool follow() {
    uint64_t const word = loadAcquire(&header_->geometry);
    return word != geometryWord_ && useGeometry(word);
  }

  Geometry const& geometry() const { return geometry_; }
  uint32_t capacity() const { return capacity_; }
  /// Ids that ever held a row are below; at most `capacity()`. Raises `CorruptionError`.
  uint32_t highWater() const;

  uint64_t* slot(uint32_t id) const {
    return std::bit_cast<uint64_t*>(slotBase_[extentOf(id)] + uintptr_t{id} * slotBytes_);
  }
  /// The column of the extent that the row lies in.
  Column const& column(uint32_t id) const { return columns_[extentOf(id)]; }
  /// The id behind the last one that lies in one piece with `id`: in `slot()`, and in one `column()`.
  uint32_t pieceEnd(uint32_t id) const { return layout_.initialRows() << extentOf(id); }
  Index& index() { return index_; }
  Index const& index() const { return index_; }
  Ring const& ring() const { return ring_; }

  // For the claim's holder.

  /// Makes sure of the table's space, also where the file has holes. What a killed writer had begun to add
  /// stays, for the next growth. Raises `MountFailure`.
  void secureSpace();
  /// As `highWater()`, but raises `MountFailure` where the mark is damaged or of an earlier moment; with
  /// `repair` it gives the capacity then.
  uint32_t trustedHighWater(bool repair) const;
  /// Reserves and maps the next extent, without publishing it. Raises `SpaceError`; the table is as before
  /// then.
  void addExtent();
  /// The index that is not in use at that level, emptied.
  Index spareIndex(unsigned level);
  /// Takes the index that `spareIndex()` gave for that level into use. All of it must have been written.
  void publishSpare(unsigned level);
  void publishHighWater(uint32_t id) const;
  /// No row lives in [from, to). Right words are left alone: readers may be walking.
  void clearColumn(uint32_t from, uint32_t to) const;

  uint64_t fileBytes() const { return layout_.fileBytes(geometry_.level); }

 private:
  struct Unmap {
    size_t size;
    void operator()(void* address) const { sys.unmap(address, size); }
  };

  /// As `Layout::extentOf()`, without the branch that zero needs there.
  unsigned extentOf(uint32_t id) const {
    return 31U ^ static_cast<unsigned>(std::countl_zero((id >> shift_) * 2 + 1));
  }
  void attach(bool repair);
  struct stat status() const;
  uint64_t size() const { return static_cast<uint64_t>(status().st_size); }
  uint64_t wordAt(uint64_t offset) const;
  bool reachesBeyond(unsigned level) const;
  uint64_t trustedGeometry(bool repair) const;
  void requireBytes(uint64_t bytes) const;
  void undoGrowth() const;
  std::byte* map(uint64_t offset, uint64_t size);
  void mapExtent(unsigned extent);
  bool useGeometry(uint64_t word);
  Index indexAt(unsigned level, unsigned half) const;
  Geometry nextGeometry(unsigned level) const;

  // What every operation reads, together.
  Header* header_ = nullptr;
  uint64_t geometryWord_ = 0;
  uint64_t seed_ = 0;
  Index index_;
  Ring ring_;
  uint32_t capacity_ = 0;
  unsigned shift_ = 0;
  uintptr_t slotBytes_ = 0;
  /// Address of the slot that row 0 would have if the extent reached down to it.
  uintptr_t slotBase_[maxExtents] = {};
  Column columns_[maxExtents] = {};

  std::byte* extents_[maxExtents] = {};
  unsigned extentCount_ = 0;
  Geometry geometry_;
  uint64_t generation_ = 0;
  RowShape shape_;
  Layout layout_;
  int fd_ = -1;
  bool writable_ = false;
  uint64_t keptBytes_ = 0;  ///< Size of the file when it was mounted.
  std::span<std::byte const> image_;
  std::vector<std::unique_ptr<void, Unmap>> pieces_;
};

}  // namespace Brine
