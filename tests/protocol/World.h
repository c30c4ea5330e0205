#pragma once

#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Brine/TestRows.h"
#include "protocol/Memory.h"

namespace Protocol {

/// What a writer did, recorded, and which rows a table held at each moment of it.
///
/// Programs are strings: a small letter writes that key, a capital removes it, `.` ends the turn, `!` makes
/// everything anew. All letters' entries belong in one line of a small index.
class World {
 public:
  /// Fills that many slots, runs `before`, all of which each reader has seen, then `during`.
  World(unsigned fillers, std::string_view before, std::string_view during);
  ~World();
  World(World const&) = delete;
  World& operator=(World const&) = delete;

  static TestKey key(char letter);
  /// The keys that the programs used.
  std::set<TestKey> const& keys() const { return keys_; }
  /// The first time, from `from` on, at which the key's row was that, or absent; nothing if there is none.
  std::optional<Time> timeOf(TestKey const& key, std::optional<TestRow> const& row, Time from) const;
  struct Turn {
    Time end;
    Model rows;
  };
  /// The turns that have ended, the last one of `before` first.
  std::vector<Turn> const& turns() const { return turns_; }
  bool endsQuiet() const { return endsQuiet_; }
  std::span<std::byte const> image() const { return {static_cast<std::byte const*>(image_), imageBytes_}; }
  /// What is wrong with the writer's own course, in words; empty if nothing.
  std::string const& fault() const { return fault_; }

 private:
  struct Moment {
    Time time;
    Model rows;
  };
  struct Version {
    Time since;
    std::optional<TestRow> row;
  };
  void run(std::string_view program);
  void write(TestKey const& key);
  void lookAtEachTime();

  TestFolder folder_;
  Table table_;
  Model model_;
  uint64_t lastValue_ = 0;
  std::set<TestKey> keys_;
  std::vector<Moment> moments_;
  std::vector<Turn> turns_;
  std::map<TestKey, std::vector<Version>> versions_;
  bool endsQuiet_ = true;
  void* image_ = nullptr;
  size_t imageBytes_ = 0;
  std::string fault_;
};

}  // namespace Protocol
