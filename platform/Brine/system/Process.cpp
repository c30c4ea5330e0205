#include "Brine/system/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "Brine/system/System.h"

namespace Brine {
namespace {

constexpr uint64_t exitingFlag = 0x4;  // PF_EXITING in the kernel's flags of a task.

struct ProcessStatus {
  char state = 0;
  uint64_t flags = 0;
  uint64_t start = 0;
};

/// Reads the `stat` file of a process or thread, whose folder in /proc that is. False if there is none, or
/// /proc does not show it.
bool readStatus(std::string const& folder, ProcessStatus& out) {
  Fd const fd(sys.openFile(AT_FDCWD, (folder + "/stat").c_str(), O_RDONLY | O_CLOEXEC, 0));
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

std::string folderOf(uint64_t number) { return "/proc/" + std::to_string(number); }

bool hasEnded(ProcessStatus const& status) {
  return status.state == 'Z' || status.state == 'X' || (status.flags & exitingFlag) != 0;
}

/// Whether one of the process's threads goes on.
bool hasLivingThread(uint64_t number) {
  std::error_code error;
  std::filesystem::directory_iterator thread(folderOf(number) + "/task", error);
  for (; !error && thread != std::filesystem::directory_iterator(); thread.increment(error)) {
    ProcessStatus status;
    if (readStatus(thread->path(), status) && !hasEnded(status)) return true;
  }
  return false;
}

uint64_t numberSpace() {
  struct stat status {};
  // The thread's, since the process has none once its main thread has ended.
  return ::stat("/proc/thread-self/ns/pid", &status) == 0 ? status.st_ino : 0;
}

}  // namespace

ProcessIdentity ProcessIdentity::self() {
  ProcessIdentity identity;
  identity.number = static_cast<uint64_t>(::getpid());
  identity.space = numberSpace();
  ProcessStatus status;
  if (readStatus(folderOf(identity.number), status)) identity.start = status.start;
  return identity;
}

Liveness livenessOf(ProcessIdentity const& process) {
  if (process.space == 0 || process.space != numberSpace()) return Liveness::unknown;
  auto const number = static_cast<pid_t>(process.number);
  if (number <= 0 || static_cast<uint64_t>(number) != process.number) return Liveness::ended;
  ProcessStatus status;
  if (!readStatus(folderOf(process.number), status)) {
    return ::kill(number, 0) != 0 && errno == ESRCH ? Liveness::ended : Liveness::unknown;
  }
  bool const isAnother = process.start != 0 && status.start != process.start;
  // What /proc shows of a process is its main thread, which may end before the others.
  bool const ended = isAnother || (hasEnded(status) && !hasLivingThread(process.number));
  return ended ? Liveness::ended : Liveness::alive;
}

}  // namespace Brine
