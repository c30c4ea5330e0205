/// Events of a controller from a feed to rows in the exported table, by the program as people run it: from a
/// file, from a pipe, and recorded meanwhile.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "Harness.h"
#include "Orb/Text.h"
#include "peers/BrineStore.h"

namespace Bench {
namespace {

constexpr uint32_t fewRows = 132'000;

struct Cost {
  double user, wall;
};

/// What switches told, in lines as a recording has them.
std::string linesOf(std::vector<QorEvpn::Host> const& hosts) {
  std::string lines =
      "{\"t\":0,\"from\":\"controller\",\"op\":\"enabled\",\"value\":true}\n"
      "{\"t\":0,\"from\":\"evpn\",\"op\":\"capability\",\"value\":true}\n";
  uint64_t millisecond = 0;
  for (QorEvpn::Host const& host : hosts) {
    char line[200];
    int const size =
        std::snprintf(line, sizeof line,
                      R"({"t":%.3f,"from":"controller","op":"mac","vni":%u,"mac":"%s","vtep":"%s","seq":%u})"
                      "\n",
                      static_cast<double>(++millisecond) / 1e3, host.key().vni().value(),
                      Orb::toText(host.key().macAddr()).c_str(), Orb::toText(host.vtepAddr()).c_str(),
                      host.seqNo().value());
    lines.append(line, static_cast<size_t>(size));
  }
  return lines;
}

void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t const count = ::write(fd, bytes.data(), bytes.size());
    if (count <= 0) fail("the agent does not read its feed");
    bytes.remove_prefix(static_cast<size_t>(count));
  }
}

/// Runs an agent to the end of its feed, which is `file`, or `bytes` where that is "-".
Cost runAgent(Place const& place, std::string const& file, std::string_view bytes,
              std::vector<std::string> const& more) {
  std::vector<std::string> arguments{"qorevpn", "agent", "--dir",        place.path() + "/site",
                                     "--feed",  file,    "--exit-at-end"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0) fail("cannot make a pipe");
  std::string const log = place.path() + "/log";
  double const start = now(Clock::wall);
  pid_t const pid = ::fork();
  if (pid == 0) {
    ::dup2(pipe[0], STDIN_FILENO);
    int const messages = ::open(log.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    ::dup2(messages, STDOUT_FILENO);
    ::dup2(messages, STDERR_FILENO);
    ::execv(QOREVPN_PROGRAM, pointers.data());
    ::_exit(127);
  }
  if (pid < 0) fail("cannot fork");
  ::close(pipe[0]);
  if (file == "-") writeAll(pipe[1], bytes);
  ::close(pipe[1]);
  int status = 0;
  rusage usage{};
  ::wait4(pid, &status, 0, &usage);
  double const wall = now(Clock::wall) - start;
  if (status != 0) {
    std::ifstream messages(log);
    fail("the agent failed: " + std::string(std::istreambuf_iterator<char>(messages), {}));
  }
  timeval const& user = usage.ru_utime;
  return {static_cast<double>(user.tv_sec) + static_cast<double>(user.tv_usec) * 1e-6, wall};
}

Cost measure(std::string const& lines, uint32_t rows, bool fromPipe, bool isRecorded = false) {
  Place const place;
  std::string file = "-";
  if (!fromPipe) {
    file = place.path() + "/events.jsonl";
    std::ofstream(file) << lines;
  }
  std::vector<std::string> more;
  if (isRecorded) more = {"--record", place.path() + "/recording"};
  Cost const cost = runAgent(place, file, lines, more);
  BrineStore::Table exported;
  exported.mount({.directory = place.path() + "/site/exported", .name = "host"});
  if (!exported.isReadable() || exported.statistics().rows != rows) fail("not every row was exported");
  return cost;
}

void run(Options const& options) {
  Report report(options, {{"feed", "1 M events from a file, user time", "s"},
                          {"feed-wall", "the same on the clock", "s"},
                          {"feed-random", "1 M in random order, user time", "s"},
                          {"feed-132k", "132,000 events, user time", "s"},
                          {"feed-132k-wall", "the same on the clock", "s"},
                          {"feed-pipe", "1 M events from a pipe", "times that from a file"},
                          {"feed-record", "1 M events, all recorded", "times that without"},
                          {"feed-record-wall", "the same on the clock", "times that without"}});
  report.goal("feed", "Brine", 1, 0.5);
  report.goal("feed-132k", "Brine", 0.15, 0.075);
  report.goal("feed-pipe", "Brine", 1.33, 1.1);
  report.goal("feed-record", "Brine", 1.33, 1.1);
  auto const vniByVni = [](std::vector<QorEvpn::Host> hosts) {
    std::ranges::sort(hosts, {}, [](QorEvpn::Host const& host) {
      return std::pair(host.key().vni().value(), host.key().macAddr().value());
    });
    return linesOf(hosts);
  };
  std::string const all = vniByVni(hosts(options.rows));
  std::string const random = linesOf(hosts(options.rows));
  std::string const few = vniByVni(hosts(fewRows));
  for (unsigned i = 0; i < options.rounds; ++i) {
    Cost const file = measure(all, options.rows, false);
    report.add("feed", "Brine", file.user);
    report.add("feed-wall", "Brine", file.wall);
    report.add("feed-pipe", "Brine", measure(all, options.rows, true).user / file.user);
    Cost const recorded = measure(all, options.rows, false, true);
    report.add("feed-record", "Brine", recorded.user / file.user);
    report.add("feed-record-wall", "Brine", recorded.wall / file.wall);
    report.add("feed-random", "Brine", measure(random, options.rows, false).user);
    Cost const start = measure(few, fewRows, false);
    report.add("feed-132k", "Brine", start.user);
    report.add("feed-132k-wall", "Brine", start.wall);
  }
  report.print();
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) { return Bench::main(argc, argv, Bench::run); }
