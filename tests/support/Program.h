#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

/// The program `qorevpn` in a process of its own. Whatever waits for it gives up, by ending the test program,
/// after a minute: a hang, not slowness.
class Program {
 public:
  /// As another user if `user` is not 0, without any group but the primary one of the same number. Only root
  /// can.
  explicit Program(std::vector<std::string> const& arguments, uid_t user = 0);
  /// Kills it if it still runs.
  ~Program();
  Program(Program const&) = delete;
  Program& operator=(Program const&) = delete;

  pid_t pid() const { return pid_; }
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
  /// Waits for its end: the exit status, or 128 and the signal.
  int wait();
  /// All of its standard error so far.
  std::string errors() const;

 private:
  bool fill();

  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
  std::string pending_;
  std::optional<int> status_;
};

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

/// Runs the program to its end without input.
Outcome run(std::vector<std::string> const& arguments, uid_t user = 0);

/// A folder of the test's own that anybody may enter, removed with everything in it.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(ScratchFolder const&) = delete;
  ScratchFolder& operator=(ScratchFolder const&) = delete;

  std::string const& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace TestSupport
