#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

namespace TestSupport {

/// How long anything may take that is expected at once.
inline constexpr int patienceMs = 60'000;

/// A function in a forked process of its own, or the program that it executes. Its exit status is 0, or 1
/// where a check in it failed or an exception left it.
class Child {
 public:
  explicit Child(std::function<void(Child& parent)> const& body);
  /// Kills it if it still runs.
  ~Child();
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;

  pid_t pid() const { return pid_; }
  /// Either side: lets one `hear()` of the other side return.
  void tell() const;
  /// Either side: waits for that; false if the other side has ended. Gives up after a minute, which is a
  /// hang, by ending the program.
  bool hear() const;
  /// Waits for its end: the exit status, or 128 and the signal.
  int wait();
  /// Kills it and waits.
  void kill();

 private:
  pid_t pid_ = -1;
  int channel_ = -1;
};

/// A value in memory that children share with their parent.
template <class Value>
class Shared {
 public:
  Shared() {
    void* const memory =
        ::mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    value_ = new (memory) Value();
  }
  ~Shared() { ::munmap(value_, sizeof(Value)); }
  Shared(Shared const&) = delete;
  Shared& operator=(Shared const&) = delete;

  Value& operator*() const { return *value_; }
  Value* operator->() const { return value_; }

 private:
  Value* value_;
};

/// In a child: becomes that program, which is looked for as shells do. With `output`, all that it prints goes
/// to the end of that file.
[[noreturn]] void execute(std::vector<std::string> command, std::string const& output = {});

/// A user without rights, and what makes the calling process, which is root's, his. Its group stays unless
/// another one is given.
inline constexpr uid_t nobody = 65534;
void becomeNobody(gid_t group = nobody);

}  // namespace TestSupport
