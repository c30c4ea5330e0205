#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The counter facility: operation counters that are found by owner and name for as long as they live.
/// Counters are made, counted and read on one thread, that of their owners.
namespace Counter {

/// Counts one kind of operation of one owner. Registered while it lives, hence neither copied nor moved.
class Counter {
 public:
  /// `owner` says whose operations are counted, such as a table's name; `name` which ones, such as "hostIs".
  /// Counters of several owners may have one name, and even two counters may have one owner and one name
  /// (tables of one name in different directories).
  Counter(std::string_view owner, std::string_view name);
  ~Counter();
  Counter(Counter const&) = delete;
  Counter& operator=(Counter const&) = delete;

  void increment() { ++value_; }

  std::string const& owner() const { return owner_; }
  std::string const& name() const { return name_; }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0;
  std::string owner_;
  std::string name_;
};

/// All counters, sorted by owner and name. The pointers hold until a counter is destroyed.
std::vector<Counter const*> counters();
/// The counters of that owner, sorted by name.
std::vector<Counter const*> countersOf(std::string_view owner);
/// The sum of the counters of that owner and name; 0 where there is none.
uint64_t value(std::string_view owner, std::string_view name);

}  // namespace Counter
