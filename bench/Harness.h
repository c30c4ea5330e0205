#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VxlanController/QorEvpnValues.h"

/// What the benchmark programs share: options, clocks, figures with their ratios, a place for files, data,
/// and second processes.
///
/// Every program measures in rounds. A round measures each subject once, one after the other, so that a
/// disturbance of the machine meets all of them alike; a ratio is the median of the rounds' own ratios.
namespace Bench {

struct Options {
  bool quick = false;   ///< --quick: fewer rows and rounds, for a look.
  unsigned rounds = 5;  ///< --rounds N
  uint32_t rows = 1'000'000;
  bool list = false;  ///< --list: print the names of the rows that this program measures, and nothing else.
  std::vector<std::string> role;  ///< --role NAME ARGUMENT...: this is a second process; see `Child`.
};

/// What a program's main function does: measures with `run`, or is one of the program's second processes with
/// `runRole`. Ends with status 2 on a wrong option.
int main(int argc, char** argv, void (*run)(Options const&),
         void (*runRole)(std::vector<std::string> const& role) = nullptr);

/// Seconds of work: of the clock on the wall where another process takes part, of this thread's processor
/// time where none does, since the machine may have other things to do.
enum class Clock { wall, cpu };
double now(Clock clock);
/// What another process has taken of the processor, in seconds.
double processorTime(pid_t pid);
template <class Work>
double seconds(Clock clock, Work&& work) {
  double const start = now(clock);
  work();
  return now(clock) - start;
}

/// Of at least one value.
double median(std::vector<double> values);

/// Keeps the compiler from leaving out what computes `value`.
template <class T>
void use(T const& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

/// Prints why and ends the program with status 1.
[[noreturn]] void fail(std::string const& why);

/// The figures of one program. The first subject of a row is ours; the others' ratios say how many times
/// better ours is.
class Report {
 public:
  struct Row {
    std::string name;
    std::string title;
    std::string unit;
    bool moreIsBetter = false;
  };

  /// Declares all rows and, for --list, prints their names and ends the program.
  Report(Options const& options, std::vector<Row> rows);

  /// A goal: our ratio to the peer; or, where `peer` is our own subject, a limit of the value itself.
  void goal(std::string const& row, std::string const& peer, double must, double aim);
  /// One round's value.
  void add(std::string const& row, std::string const& subject, double value);
  /// A row's peer was not measured, and why. Goes to standard error.
  static void skipped(std::string const& what, std::string const& why);

  /// Medians and ratios to standard output, a line each: row, title, subject, median, unit, ratio, must, aim,
  /// separated by tabs; "-" where there is none.
  void print() const;

 private:
  struct Series {
    std::string subject;
    std::vector<double> values;
  };
  struct Goal {
    double must, aim;
  };
  std::vector<Row> rows_;
  std::map<std::string, std::vector<Series>> series_;
  std::map<std::pair<std::string, std::string>, Goal> goals_;
};

/// Takes memory from the system and gives it back, as much as a measurement of a million rows fills. The host
/// of a virtual machine may have taken free memory away and is slow to bring it back, which would be measured
/// in the place of whoever comes next.
void warmMemory();

/// A directory of its own in shared memory, removed with its owner. Each measurement begins with one, so
/// memory is warmed here.
class Place {
 public:
  Place();
  ~Place();
  Place(Place const&) = delete;
  Place& operator=(Place const&) = delete;
  std::string const& path() const { return path_; }

 private:
  std::string path_;
};

/// The data of every benchmark: MAC addresses numbered in sequence, dealt over `vniCount` VNIs from 1 on, in
/// random order. Another seed gives another order of the same hosts.
inline constexpr uint32_t vniCount = 4000;
std::vector<QorEvpn::Host> hosts(uint32_t count, uint64_t seed = 1);
std::vector<QorEvpn::MacVniPair> keysOf(std::vector<QorEvpn::Host> const& hosts);

/// This program, or another one, in a second process, with `--role` and these arguments. Both talk by lines:
/// `line()` reads what the role printed, `tell()` is what `heard()` waits for in it.
class Child {
 public:
  explicit Child(std::vector<std::string> const& role, std::string const& program = "/proc/self/exe");
  ~Child();
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;

  /// The next line of its standard output; the program fails if there is none.
  std::string line();
  double number() { return std::stod(line()); }
  void tell();
  void kill(int signal);
  /// Waits for its end; the program fails unless the role returned 0 or was killed by us.
  void wait();
  pid_t pid() const { return pid_; }
  /// Readable when a line comes.
  int out() const { return out_; }

 private:
  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  std::string buffer_;
  bool killed_ = false;
};

/// In a role: prints a line to the parent, waits for its `tell()`.
void say(std::string const& line);
void say(double number);
void heard();

}  // namespace Bench
