#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/World.h"

namespace Protocol {

/// A reader of a world, that notices where what it is shown cannot be.
class Reader {
 public:
  explicit Reader(World const& world);

  /// Runs a script, then sees all that the writer did and is told of the rest. In scripts a letter looks that
  /// key up, `*` walks, `1` and `2` walk over one column, `>` delivers, `^` is woken by the end of the
  /// next turn. What stands in front of `~` sees the oldest that it may see.
  void run(std::string_view script);

  /// What was wrong first, in words; empty if nothing.
  std::string const& fault() const { return fault_; }

 private:
  template <class Act>
  void act(std::string const& what, Act&& act);
  void fail(std::string const& what);
  bool see(TestKey const& key, std::optional<TestRow> const& row, bool isTold);
  void find(TestKey const& key);
  void walk(std::optional<uint32_t> column);
  void onChanged(TestKey const& key);
  void deliver();
  void finish();

  World const& world_;
  Table table_;
  Model copy_;                    ///< What the owner takes the table to hold.
  std::map<TestKey, Time> seen_;  ///< No key's row may be older than it was shown before.
  bool quiesced_ = false;
  size_t turn_ = 0;  ///< The last one that woke it.
  Time began_ = 0;   ///< The view at the beginning of the operation.
  std::string fault_;
};

struct Outcome {
  size_t executions = 0;
  bool isComplete = false;
  /// With the choices that led to it.
  std::string fault;
};

/// Runs a reader until every execution was run, one has a fault, or there were `limit`. With a `seed`:
/// `limit` executions whose choices are drawn.
Outcome explore(World const& world, std::string_view script, size_t limit,
                std::optional<uint64_t> seed = std::nullopt);

}  // namespace Protocol
