/// The log of a process: what it tells the people who run it, a line at a time.
///
///   2026-11-22T07:26:18.123Z info    agent /dev/shm/west: integration on
///
/// Where standard error goes to the system's journal, which has times of its own, a line is "<6>agent ...":
/// the level as the journal reads it, no time.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

/// As syslog counts them.
enum class LogLevel : int { error = 3, warning = 4, info = 6 };

/// Writes a line, whole or not at all. `text` holds no end of line. Never raises: a log that cannot be
/// written stops nobody.
void logLine(LogLevel level, std::string_view text);

/// Sends the log to the end of a file, which is made (mode 0640) if it is missing. Raises std::system_error.
void logFileIs(std::string const& path);
/// Opens the file of the log by its name again, since it may have been moved away. Where that fails, the log
/// says so and goes on in the file that it had. Does nothing for standard error.
void reopenLog();

/// Now, "2026-11-22T07:26:18.123Z".
std::string utcTime();
/// Now for people at a terminal, the local time of day: "08:26:18.123".
std::string localTime();

}  // namespace Agent
