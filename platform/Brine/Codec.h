#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string_view>

#include "Brine/rows/Index.h"
#include "Brine/rows/Row.h"

namespace Brine {

/// How rows of a type lie in shared memory: as 64-bit words, the key's words first. Specialise it for each
/// row type:
///
///   template <> struct Brine::Codec<Row> {
///     using Key = ...;
///     static constexpr std::string_view rowType = "...";      // Part of the table's fingerprint.
///     static constexpr unsigned keyWords = ..., rowWords = ...;
///     static Key key(Row const& row);
///     static void encodeKey(Key const& key, uint64_t* words);  // keyWords
///     static void encode(Row const& row, uint64_t* words);     // rowWords
///     static std::optional<Key> decodeKey(uint64_t const* words);
///     static bool decode(uint64_t const* words, Row& row);     // False, with any row, for words to refuse.
///     static uint32_t hash(uint64_t const* keyWords);
///     static uint32_t column(uint64_t const* keyWords);
///   };
///
/// Equal keys have equal words and different keys different ones; no bit is left to chance. Decoding refuses
/// words that no encoding gives, which the engine reports as corruption. `hash` and `column` accept any
/// words. `column` is the value that walks can be filtered on. Keys are sorted by their operator<.
template <class Row>
struct Codec;

/// A row type that a table can hold.
template <class Row>
concept TableRow = requires(Row const& row, typename Codec<Row>::Key const& key, uint64_t* words,
                            Row& decoded) {
  { Codec<Row>::rowType } -> std::convertible_to<std::string_view>;
  { Codec<Row>::key(row) } -> std::convertible_to<typename Codec<Row>::Key>;
  {Codec<Row>::encodeKey(key, words)};
  {Codec<Row>::encode(row, words)};
  { Codec<Row>::decodeKey(words) } -> std::same_as<std::optional<typename Codec<Row>::Key>>;
  { Codec<Row>::decode(words, decoded) } -> std::same_as<bool>;
  { Codec<Row>::hash(words) } -> std::same_as<uint32_t>;
  { Codec<Row>::column(words) } -> std::same_as<uint32_t>;
  { key < key } -> std::convertible_to<bool>;
  requires Codec<Row>::keyWords >= 1 && Codec<Row>::rowWords >= Codec<Row>::keyWords;
};

/// What a pass over all rows learns of one: all but the version only of a live one.
struct SurveyedRow {
  RowState state = RowState::dead;  ///< Damaged also for values that no encoding gives.
  uint64_t version = 0;
  uint32_t hash = 0;
  ColumnWord column = noColumn;
};

/// Reads and verifies `count` rows from `id` on, whose slots lie one behind the other.
template <TableRow Row>
void surveyRows(uint64_t const* slot, uint32_t id, unsigned count, uint64_t seed, SurveyedRow* result) {
  using C = Codec<Row>;
  constexpr unsigned stride = Layout(16, 16, C::keyWords, C::rowWords).rowStride();
  // The processor's own prefetch stops at the end of a page.
  constexpr unsigned rowsAhead = 32;
  for (uint32_t const end = id + count; id < end; ++id, slot += stride, ++result) {
    prefetch(slot + rowsAhead * stride);
    uint64_t words[C::rowWords];
    Row row;
    result->state = readRow(slot, id, seed, C::keyWords, C::rowWords - C::keyWords, words, result->version);
    if (result->state != RowState::live) continue;
    if (!C::decode(words, row)) result->state = RowState::damaged;
    result->hash = C::hash(words);
    result->column = columnWordOf(C::column(words));
  }
}

/// A codec as the parts of the engine see it that do not know the row type: mount, recovery, growth, check.
struct RowShape {
  std::string_view rowType;
  unsigned keyWords;
  unsigned rowWords;
  uint32_t (*hash)(uint64_t const* keyWords);
  uint32_t (*column)(uint64_t const* keyWords);
  void (*survey)(uint64_t const* slot, uint32_t id, unsigned count, uint64_t seed, SurveyedRow* result);

  /// Differs between shapes whose tables do not understand one another.
  uint64_t fingerprint() const;

  template <TableRow Row>
  static RowShape of() {
    return {Codec<Row>::rowType, Codec<Row>::keyWords, Codec<Row>::rowWords,
            &Codec<Row>::hash,   &Codec<Row>::column,  &surveyRows<Row>};
  }
};

}  // namespace Brine
