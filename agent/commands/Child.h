/// Agent::Child: a command of this program in a process of its own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace Agent {

class Child {
 public:
  /// Starts the program with these arguments. Its output goes to the end of the file `log`. It is in no
  /// terminal's foreground, and is killed when this process ends. Raises std::system_error.
  Child(std::vector<std::string> arguments, std::string const& log);
  ~Child();
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;

  /// False once it has ended by itself.
  bool isRunning();
  /// Ends it: SIGKILL at any instruction, SIGTERM as a user would. Returns when it has ended.
  void stop(int signal);

 private:
  pid_t pid_ = -1;
};

}  // namespace Agent
