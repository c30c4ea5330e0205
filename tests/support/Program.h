#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "support/Child.h"

namespace TestSupport {

/// The program `qorevpn` in a process of its own, killed if it still runs when this goes. Whatever waits for
/// it gives up, by ending the test program, after a minute: a hang, not slowness.
class Program {
 public:
  /// As `nobody` only if the caller is root.
  explicit Program(std::vector<std::string> arguments, bool isNobodys = false);
  ~Program();

  /// Its standard input; nothing is written after the end.
  void write(std::string const& text) const;
  void endInput();
  /// The next line of its standard output, without the end of line; nothing at the end.
  std::optional<std::string> line();
  /// What is left of its standard output.
  std::string rest();
  /// Closes the reading end of its standard output.
  void closeOutput();
  void signal(int number) const;
  /// Stops it and waits until it stands still; SIGCONT lets it go on.
  void stop() const;
  /// Waits for its end, once: the exit status, or 128 and the signal.
  int wait();
  /// All of its standard error so far.
  std::string errors() const;

 private:
  bool fill();

  std::array<int, 2> input_, output_;  // pipes, of which this side keeps an end
  int errors_;
  std::string pending_;
  Child process_;
};

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

/// Runs the program to its end, with a standard input that ends behind `input`.
Outcome run(std::vector<std::string> const& arguments, bool isNobodys = false, std::string const& input = {});

}  // namespace TestSupport
