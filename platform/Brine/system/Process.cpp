#include "Brine/system/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Brine/system/System.h"

namespace Brine {
namespace {

constexpr uint64_t exitingFlag = 0x4;  // PF_EXITING in the kernel's flags of a task.

struct ProcessStatus {
  char state = 0;
  uint64_t flags = 0;
  uint64_t start = 0;
};

/// Reads /proc/NUMBER/stat. False if there is no such process, or /proc does not show it.
bool readStatus(uint64_t number, ProcessStatus& out) {
  Fd fd(::open(("/proc/" + std::to_string(number) + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return false;
  char text[1024];
  ssize_t const size = ::read(fd.get(), text, sizeof text - 1);
  if (size <= 0) return false;
  text[size] = 0;
  // The second field, the program's name in parentheses, may hold anything; the third follows its last
  // parenthesis.
  char const* field = std::strrchr(text, ')');
  if (field == nullptr || field[1] != ' ') return false;
  field += 2;
  for (int column = 3; column <= 22; ++column) {
    if (column == 3) out.state = *field;
    if (column == 9) out.flags = std::strtoull(field, nullptr, 10);
    if (column == 22) out.start = std::strtoull(field, nullptr, 10);
    field = std::strchr(field, ' ');
    if (field == nullptr) return column == 22;
    ++field;
  }
  return true;
}

uint64_t numberSpace() {
  struct stat status {};
  return ::stat("/proc/self/ns/pid", &status) == 0 ? status.st_ino : 0;
}

}  // namespace

ProcessIdentity ProcessIdentity::self() {
  ProcessIdentity identity;
  identity.number = static_cast<uint64_t>(::getpid());
  identity.space = numberSpace();
  ProcessStatus status;
  if (readStatus(identity.number, status)) identity.start = status.start;
  return identity;
}

Liveness livenessOf(ProcessIdentity const& process) {
  if (process.space == 0 || process.space != numberSpace()) return Liveness::unknown;
  auto const number = static_cast<pid_t>(process.number);
  if (number <= 0 || static_cast<uint64_t>(number) != process.number) return Liveness::ended;
  ProcessStatus status;
  if (!readStatus(process.number, status)) {
    return ::kill(number, 0) != 0 && errno == ESRCH ? Liveness::ended : Liveness::unknown;
  }
  bool const ended = status.state == 'Z' || status.state == 'X' || (status.flags & exitingFlag) != 0 ||
                     (process.start != 0 && status.start != process.start);
  return ended ? Liveness::ended : Liveness::alive;
}

}  // namespace Brine
