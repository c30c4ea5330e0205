#pragma once

#include <unistd.h>

#include <compare>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <string>

#include "Brine/Table.h"

/// A row type with a key of two words, in the shape of a host: a number of 48 bits in a group of 24.
struct TestKey {
  uint64_t number = 0;
  uint32_t group = 0;
  friend auto operator<=>(TestKey const&, TestKey const&) = default;
  friend std::ostream& operator<<(std::ostream& out, TestKey const& key) {
    return out << key.group << "/" << key.number;
  }
};

struct TestRow {
  TestKey key;
  uint64_t value = 0;
  uint64_t other = 0;
  friend bool operator==(TestRow const&, TestRow const&) = default;
  friend std::ostream& operator<<(std::ostream& out, TestRow const& row) { return out << row.value; }
};

template <>
struct Brine::Codec<TestRow> {
  using Key = TestKey;
  static constexpr std::string_view rowType = "TestRow";
  static constexpr unsigned keyWords = 2, rowWords = 4;
  static Key key(TestRow const& row) { return row.key; }
  static void encodeKey(Key const& key, uint64_t* words) {
    words[0] = key.number;
    words[1] = key.group;
  }
  static void encode(TestRow const& row, uint64_t* words) {
    encodeKey(row.key, words);
    words[2] = row.value;
    words[3] = row.other;
  }
  static std::optional<Key> decodeKey(uint64_t const* words) {
    if (words[0] >> 48 != 0 || words[1] > 0xFFFFFF) return std::nullopt;
    return Key{words[0], static_cast<uint32_t>(words[1])};
  }
  static bool decode(uint64_t const* words, TestRow& row) {
    auto const key = decodeKey(words);
    if (key) row = {*key, words[2], words[3]};
    return key.has_value();
  }
  // Weak on purpose: index lines overflow.
  static uint32_t hash(uint64_t const* words) {
    return static_cast<uint32_t>(words[0] * 0x9E3779B9U ^ words[1]) & 0xFFFFFFF0U;
  }
  static uint32_t column(uint64_t const* words) { return static_cast<uint32_t>(words[1]); }
};

using Brine::Mode, Brine::MountStatus;
using Table = Brine::Table<TestRow>;
using Model = std::map<TestKey, TestRow>;

/// A directory for tables, removed with its owner.
class TestFolder {
 public:
  TestFolder() {
    if (::mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string const& path() const { return path_; }

  Brine::MountOptions options(Mode mode, std::string const& name = "table", bool repair = false) const {
    Brine::MountOptions options;
    options.directory = path_;
    options.name = name;
    options.mode = mode;
    options.repair = repair;
    options.turns = true;
    // Small, so that growth and laps happen.
    options.initialRows = 16;
    options.ringEntries = 16;
    return options;
  }

 private:
  std::string path_ = "/dev/shm/brine-test-XXXXXX";
};
