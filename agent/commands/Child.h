/// Agent::Child: a command of this program in a process of its own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace Agent {

class Child {
 public:
  /// Starts the program with these arguments. Its output is appended to the file `log`. It has a process
  /// group of its own, and is killed when this process ends. Raises std::system_error.
  Child(std::vector<std::string> arguments, std::string const& log);
  ~Child();
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;

  /// False once it has ended by itself.
  bool isRunning();
  /// Sends the signal and waits until the process has ended.
  void stop(int signal);

 private:
  pid_t pid_ = -1;
};

}  // namespace Agent
