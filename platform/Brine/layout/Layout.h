#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

/// Where everything lies in a table's file. No other file knows an offset.
///
///   byte 0        header, one page; see `Header`
///   4096          change ring: `ringEntries` entries of `ringStride()` words
///   ...           extent 0: rows [0, initialRows)
///   ...           extent 1: as many rows again; extent e > 1: twice as many as extent e - 1
///
/// Each extent begins on a page and holds, each part on a page of its own:
///
///   rows          one slot of `rowStride()` words a row
///   column        the low bytes of one 16-bit word a row, `columnWordOf()`, of all rows; then, on a page of
///                 their own, the high bytes, 0xFF where no row lives
///   index A, B    two indexes for all rows up to the end of this extent; one at most is in use
///
/// A table at level L consists of the extents 0 to L and has initialRows << L slots; it looks rows up in one
/// of the two indexes of extent L. Growing appends an extent, so rows never move: a row's id is the number of
/// its slot for life.
///
///   row slot      +------------+------------+-----------+-------------+-------------+
///     (words)     | version    | checks     | key ...   | value A ... | value B ... |
///                 +------------+------------+-----------+-------------+-------------+
///     version     63..2 sequence number of the change | 1 valid copy: 0 = A, 1 = B | 0 a row lives here
///     checks      63..32 check of copy B | 31..0 check of copy A
///
///   ring entry    +------------+-----------------------------------+-----------+
///     (words)     | sequence   | 31..0 row id                      | key ...   |
///                 +------------+-----------------------------------+-----------+
///
///   index line    +-------------------------+-------------------+------------+-----------------------------+
///     (64 bytes)  | 0: tags of lanes 0 to 3 | 8: tags 4 to 7    | 16: tags   | 24: row ids of lanes 0 to 9 |
///                 |    (16 bits each)       |                   |  8 and 9,  |     (32 bits each)          |
///                 |                         |                   | 20: passed |                             |
///                 +-------------------------+-------------------+------------+-----------------------------+
///     a tag of 0 marks a free lane; "passed" counts the keys that found this line full and live behind it
namespace Brine {

inline constexpr uint64_t pageBytes = 4096;
inline constexpr uint64_t lineBytes = 64;
inline constexpr uint64_t magicNumber = 0x31304E4952420A1AU;  // Unlike any text, and tells the byte order.
inline constexpr uint32_t layoutVersion = 13;
inline constexpr uint32_t noRow = 0xFFFFFFFFU;
inline constexpr uint32_t maxRows = 0x80000000U;
inline constexpr unsigned maxExtents = 32;
inline constexpr unsigned maxKeyWords = 4;
inline constexpr unsigned maxRowWords = 16;
inline constexpr uint32_t lanesPerLine = 10;

/// A word of the column: so short that the low bytes of a million rows fit a processor's own cache and leave
/// room there for what else a walk reads.
using ColumnWord = uint16_t;
/// Stands for every word with this high byte: no row lives here.
inline constexpr ColumnWord noColumn = 0xFF00U;
/// How many words there are of rows that live.
inline constexpr uint32_t columnWords = noColumn;
/// What stands in the column for a row of that column value. Values that lie a multiple of 65,280 apart share
/// a word, so who finds one looks at the row too.
constexpr ColumnWord columnWordOf(uint32_t value) { return static_cast<ColumnWord>(value % noColumn); }

/// A slot's version word.
inline constexpr uint64_t versionLive = 1;
inline constexpr uint64_t versionCopyB = 2;
inline constexpr unsigned versionSequenceShift = 2;

/// The header's `writer`, while there is one.
inline constexpr uint64_t markedWriter = 1;
inline constexpr uint64_t unmarkedWriter = 2;

/// The header. Every line has one reason to be written, so that a line that changes often disturbs no reader
/// of one that does not; the writer process is the only one to write any of it. Words are plain here and
/// accessed through Brine/layout/Word.h.
struct Header {
  // Line 0 and 1: identity. Constant from creation on, covered by `identityCheck`.
  uint64_t magic;
  uint64_t fingerprint;  ///< Of layout version, row type, key and row widths, the key's hash and column.
  uint64_t seed;         ///< Of every check in this file; random.
  uint64_t generation;   ///< Differs from that of every other file that bore this name.
  uint64_t firstSequence;
  uint32_t initialRows;
  uint32_t ringEntries;
  uint32_t keyWords;
  uint32_t rowWords;
  uint64_t identityCheck;
  char rowType[64];  ///< Name of the row type, padded with zeros.
  // Line 2: the writer. Written at mount and unmount.
  uint64_t incarnation;  ///< Counts recoveries; a change tells readers to compare everything.
  uint64_t writer;       ///< 0 after a clean unmount, else whether its writer marked the file; see `Claim`.
  uint64_t reserved;     ///< 0.
  uint64_t dropped;      ///< Damaged rows dropped by recoveries so far.
  uint64_t mountHead;    ///< `head` at the last mount, for people; 0 in files of an older program.
  uint64_t reserved2[3];
  // Line 3: geometry, sealed. Written at growth and recovery.
  uint64_t geometry;
  uint64_t reserved3[7];
  // Line 4: progress. Written several times a turn of the writer.
  uint64_t head;   ///< Sequence number of the last published change.
  uint64_t quiet;  ///< `head` while the writer is quiet, 0 while it is in the middle of a turn.
  uint64_t rows;   ///< Number of live rows, for people.
  uint64_t reserved4[5];
  // Line 5: high water, sealed. Written once in `highWaterStep` fresh rows.
  uint64_t highWater;  ///< No row was ever written at or above this id.
  uint64_t reserved5[7];
  // Line 6: the doorbell. Written by a system call, so that watchers of the file wake; its value counts the
  // wakes.
  uint64_t doorbell;
  uint64_t reserved6[7];
};

static_assert(offsetof(Header, magic) == 0 && offsetof(Header, fingerprint) == 8 &&
              offsetof(Header, seed) == 16);
static_assert(offsetof(Header, generation) == 24 && offsetof(Header, firstSequence) == 32);
static_assert(offsetof(Header, initialRows) == 40 && offsetof(Header, ringEntries) == 44);
static_assert(offsetof(Header, keyWords) == 48 && offsetof(Header, rowWords) == 52);
static_assert(offsetof(Header, identityCheck) == 56 && offsetof(Header, rowType) == 64);
static_assert(offsetof(Header, incarnation) == 128 && offsetof(Header, writer) == 136);
static_assert(offsetof(Header, reserved) == 144 && offsetof(Header, dropped) == 152);
static_assert(offsetof(Header, mountHead) == 160);
static_assert(offsetof(Header, geometry) == 192 && offsetof(Header, head) == 256);
static_assert(offsetof(Header, quiet) == 264 && offsetof(Header, rows) == 272);
static_assert(offsetof(Header, highWater) == 320 && offsetof(Header, doorbell) == 384);
static_assert(sizeof(Header) == 448 && sizeof(Header) <= pageBytes);

/// `place` of the sealed header words.
inline constexpr uint64_t geometryPlace = offsetof(Header, geometry);
inline constexpr uint64_t highWaterPlace = offsetof(Header, highWater);

/// Payload of the geometry word: which index is in use. `epoch` tells two states with the same index apart.
struct Geometry {
  uint32_t level = 0;
  uint32_t half = 0;
  uint32_t epoch = 0;  ///< 24 bits, wraps.

  constexpr uint32_t payload() const { return (epoch & 0xFFFFFFU) << 8 | half << 7 | level; }
  static constexpr Geometry ofPayload(uint32_t payload) {
    return {payload & 0x7FU, payload >> 7 & 1U, payload >> 8};
  }
};

/// The high-water mark moves in steps, so that readers that poll its line meet the writer there only now and
/// then.
inline constexpr uint32_t highWaterStep = 64;

/// Sizes and offsets of one table, computed from what its header says. All fit 64 bits for every accepted
/// header.
class Layout {
 public:
  constexpr Layout() = default;
  constexpr Layout(uint32_t initialRows, uint32_t ringEntries, unsigned keyWords, unsigned rowWords)
      : initialRows_(initialRows), ringEntries_(ringEntries), keyWords_(keyWords), rowWords_(rowWords) {}

  /// False for numbers that no writer would have chosen; such a layout must not be used.
  constexpr bool isPlausible() const {
    return std::has_single_bit(initialRows_) && initialRows_ >= 16 && initialRows_ <= 1U << 30 &&
           std::has_single_bit(ringEntries_) && ringEntries_ >= 16 && ringEntries_ <= 1U << 24 &&
           keyWords_ >= 1 && keyWords_ <= maxKeyWords && rowWords_ >= keyWords_ && rowWords_ <= maxRowWords;
  }

  constexpr uint32_t initialRows() const { return initialRows_; }
  constexpr uint32_t ringEntries() const { return ringEntries_; }
  constexpr unsigned keyWords() const { return keyWords_; }
  constexpr unsigned valueWords() const { return rowWords_ - keyWords_; }
  /// Words from one slot to the next: a power of two up to a cache line, whole lines beyond.
  constexpr unsigned rowStride() const {
    unsigned const words = 2 + keyWords_ + 2 * valueWords();
    return words <= 8 ? std::bit_ceil(words) : (words + 7) / 8 * 8;
  }
  constexpr unsigned ringStride() const { return (2 + keyWords_ + 3) / 4 * 4; }

  constexpr unsigned maxLevel() const { return 31U - static_cast<unsigned>(std::countr_zero(initialRows_)); }
  constexpr uint32_t capacity(unsigned level) const { return initialRows_ << level; }
  /// The first id of an extent and the number of its rows.
  constexpr uint32_t extentFirst(unsigned extent) const {
    return extent == 0 ? 0 : initialRows_ << (extent - 1);
  }
  constexpr uint32_t extentRows(unsigned extent) const {
    return extent == 0 ? initialRows_ : extentFirst(extent);
  }
  /// The extent of a row. Its first row is `extentFirst()` of it.
  constexpr unsigned extentOf(uint32_t id) const {
    return static_cast<unsigned>(std::bit_width(id >> std::countr_zero(initialRows_)));
  }

  /// Lines of an index for a level: seven rows a line on average when the level is full.
  constexpr uint32_t indexLines(unsigned level) const { return capacity(level) / 7 + 2; }

  // Offsets within an extent, in bytes.
  constexpr uint64_t columnOffset(unsigned extent) const {
    return wholePages(uint64_t{extentRows(extent)} * rowStride() * 8);
  }
  /// Of the column's low bytes; as many of its high bytes lie behind them.
  constexpr uint64_t columnBytes(unsigned extent) const { return wholePages(extentRows(extent)); }
  constexpr uint64_t indexOffset(unsigned extent, unsigned half) const {
    return columnOffset(extent) + 2 * columnBytes(extent) + half * indexBytes(extent);
  }
  constexpr uint64_t indexBytes(unsigned level) const { return wholePages(indexLines(level) * lineBytes); }
  constexpr uint64_t extentBytes(unsigned extent) const { return indexOffset(extent, 2); }

  // Offsets within the file, in bytes.
  constexpr uint64_t ringOffset() const { return pageBytes; }
  constexpr uint64_t extentOffset(unsigned extent) const {
    uint64_t offset = ringOffset() + wholePages(uint64_t{ringEntries_} * ringStride() * 8);
    for (unsigned e = 0; e < extent; ++e) offset += extentBytes(e);
    return offset;
  }
  /// Of a file at that level.
  constexpr uint64_t fileBytes(unsigned level) const { return extentOffset(level + 1); }

 private:
  static constexpr uint64_t wholePages(uint64_t bytes) {
    return (bytes + pageBytes - 1) / pageBytes * pageBytes;
  }

  uint32_t initialRows_ = 16;
  uint32_t ringEntries_ = 16;
  unsigned keyWords_ = 1;
  unsigned rowWords_ = 1;
};

}  // namespace Brine
