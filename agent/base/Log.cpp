#include "agent/base/Log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <cstdlib>

#include "agent/base/Fd.h"

namespace Agent {

namespace {

struct LogFile {
  std::string path;  ///< Empty for standard error.
  Fd fd;
};

LogFile& logFile() {
  static LogFile file;
  return file;
}

Fd openLog(std::string const& path) {
  return Fd(checked(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640), path.c_str()));
}

/// Whether standard error is the stream that the journal has named to this process or its parents.
bool isJournal() {
  char const* const named = std::getenv("JOURNAL_STREAM");
  struct stat status;
  return named != nullptr && fstat(STDERR_FILENO, &status) == 0 &&
         std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) == named;
}

std::string_view toText(LogLevel level) {
  switch (level) {
    case LogLevel::error: return "error   ";
    case LogLevel::warning: return "warning ";
    case LogLevel::info: break;
  }
  return "info    ";
}

std::string timeText(bool isLocal) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  isLocal ? localtime_r(&now.tv_sec, &parts) : gmtime_r(&now.tv_sec, &parts);
  char text[32];
  std::string result(text, isLocal ? strftime(text, sizeof text, "%H:%M:%S", &parts)
                                   : strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts));
  return result + '.' + std::to_string(1000 + now.tv_nsec / 1000000).substr(1);
}

}  // namespace

void logLine(LogLevel level, std::string_view text) {
  LogFile const& file = logFile();
  std::string line;
  if (!file.fd && isJournal()) {
    line = '<' + std::to_string(static_cast<int>(level)) + '>';
  } else {
    line = utcTime() + ' ' + std::string(toText(level));
  }
  line.append(text).append(1, '\n');
  [[maybe_unused]] auto const written =
      write(file.fd ? file.fd.get() : STDERR_FILENO, line.data(), line.size());
}

void logFileIs(std::string const& path) {
  Fd fd = openLog(path);
  logFile() = {path, std::move(fd)};
}

void reopenLog() {
  LogFile& file = logFile();
  if (!file.fd) return;
  try {
    file.fd = openLog(file.path);
  } catch (std::system_error const& error) {
    logLine(LogLevel::error, std::string("the log cannot be opened again: ") + error.what());
  }
}

std::string utcTime() { return timeText(false) + 'Z'; }

std::string localTime() { return timeText(true); }

}  // namespace Agent
