#include "Harness.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <utility>

namespace Bench {
namespace {

std::string text(double value) {
  char buffer[32];
  // Three digits that count.
  int const decimals = value >= 100 ? 0 : value >= 10 ? 1 : value >= 1 ? 2 : 3;
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
  return buffer;
}

std::string shortText(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

Options parseOptions(int argc, char** argv) {
  Options options;
  std::vector<std::string> const arguments(argv + 1, argv + argc);
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "--quick") {
      options.quick = true;
      options.rounds = 2;
      options.rows = 200'000;
    } else if (arguments[i] == "--list") {
      options.list = true;
    } else if (arguments[i] == "--rounds" && i + 1 < arguments.size()) {
      options.rounds = static_cast<unsigned>(std::stoul(arguments[++i]));
    } else if (arguments[i] == "--role" && i + 1 < arguments.size()) {
      options.role.assign(arguments.begin() + static_cast<ptrdiff_t>(i) + 1, arguments.end());
      break;
    } else {
      std::fprintf(stderr, "usage: %s [--quick] [--rounds N] [--list]\n", argv[0]);
      std::exit(2);
    }
  }
  return options;
}

}  // namespace

int main(int argc, char** argv, void (*run)(Options const&),
         void (*runRole)(std::vector<std::string> const& role)) {
  Options const options = parseOptions(argc, argv);
  options.role.empty() || runRole == nullptr ? run(options) : runRole(options.role);
  return 0;
}

double processorTime(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(file, text);
  std::istringstream rest(text.substr(text.rfind(')') + 2));
  std::string word;
  double ticks = 0;
  for (int field = 3; rest >> word && field <= 15; ++field) {
    if (field >= 14) ticks += std::stod(word);
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double now(Clock clock) {
  timespec time{};
  ::clock_gettime(clock == Clock::cpu ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  size_t const middle = values.size() / 2;
  return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void fail(std::string const& why) {
  std::fprintf(stderr, "%s\n", why.c_str());
  std::exit(1);
}

Report::Report(Options const& options, std::vector<Row> rows) : rows_(std::move(rows)) {
  if (!options.list) return;
  for (Row const& row : rows_) std::printf("%s\n", row.name.c_str());
  std::exit(0);
}

void Report::goal(std::string const& row, std::string const& peer, double must, double aim) {
  goals_[{row, peer}] = {must, aim};
}

void Report::add(std::string const& row, std::string const& subject, double value) {
  auto& series = series_[row];
  auto found =
      std::find_if(series.begin(), series.end(), [&](Series const& s) { return s.subject == subject; });
  if (found == series.end()) found = series.insert(found, {subject, {}});
  found->values.push_back(value);
}

void Report::skipped(std::string const& what, std::string const& why) {
  std::fprintf(stderr, "skipped: %s: %s\n", what.c_str(), why.c_str());
}

void Report::print() const {
  for (Row const& row : rows_) {
    auto const found = series_.find(row.name);
    if (found == series_.end()) continue;
    Series const& ours = found->second.front();
    for (Series const& series : found->second) {
      std::string ratioText = "-";
      if (&series != &ours) {
        std::vector<double> ratios;
        for (size_t i = 0; i < std::min(series.values.size(), ours.values.size()); ++i) {
          double const theirs = series.values[i] / ours.values[i];
          ratios.push_back(row.moreIsBetter ? 1 / theirs : theirs);
        }
        ratioText = text(median(ratios));
      }
      auto const goal = goals_.find({row.name, series.subject});
      std::string const must = goal == goals_.end() ? "-" : shortText(goal->second.must);
      std::string const aim = goal == goals_.end() ? "-" : shortText(goal->second.aim);
      std::printf("%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n", row.name.c_str(), row.title.c_str(),
                  series.subject.c_str(), text(median(series.values)).c_str(), row.unit.c_str(),
                  ratioText.c_str(), must.c_str(), aim.c_str());
    }
  }
  std::fflush(stdout);
}

void warmMemory() {
  constexpr size_t bytes = size_t{512} << 20;
  constexpr size_t page = 4096;
  void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) fail("no memory");
  // Small pages would come from what is left between the large ones, which tables are made of.
  ::madvise(memory, bytes, MADV_HUGEPAGE);
  for (size_t i = 0; i < bytes; i += page) static_cast<char volatile*>(memory)[i] = 1;
  ::munmap(memory, bytes);
}

Place::Place() : path_("/dev/shm/qorevpn-bench-XXXXXX") {
  warmMemory();
  if (::mkdtemp(path_.data()) == nullptr) fail("cannot make a directory in /dev/shm");
}

Place::~Place() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<QorEvpn::Host> hosts(uint32_t count, uint64_t seed) {
  std::vector<QorEvpn::Host> all;
  all.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    QorEvpn::Host host(
        QorEvpn::MacVniPair(Wirix::EthAddr::ofValue(0x020000000000U + i), Vxlan::Vni(1 + i % vniCount)));
    host.vtepAddrIs(Wirix::IpAddr(0x0A630000U + i % 251));
    host.seqNoIs(Seqno32(i % 7));
    all.push_back(host);
  }
  std::mt19937_64 random(seed);
  std::shuffle(all.begin(), all.end(), random);
  return all;
}

std::vector<QorEvpn::MacVniPair> keysOf(std::vector<QorEvpn::Host> const& hosts) {
  std::vector<QorEvpn::MacVniPair> keys;
  keys.reserve(hosts.size());
  for (QorEvpn::Host const& host : hosts) keys.push_back(host.key());
  return keys;
}

Child::Child(std::vector<std::string> const& role, std::string const& program) {
  int toChild[2], fromChild[2];
  if (::pipe(toChild) != 0 || ::pipe(fromChild) != 0) fail("cannot make a pipe");
  std::vector<std::string> arguments{"bench", "--role"};
  arguments.insert(arguments.end(), role.begin(), role.end());
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  std::fflush(stdout);
  pid_ = ::fork();
  if (pid_ < 0) fail("cannot fork");
  if (pid_ == 0) {
    ::dup2(toChild[0], 0);
    ::dup2(fromChild[1], 1);
    for (int fd = 3; fd < 256; ++fd) ::close(fd);
    ::execv(program.c_str(), pointers.data());
    ::_exit(127);
  }
  ::close(toChild[0]);
  ::close(fromChild[1]);
  in_ = toChild[1];
  out_ = fromChild[0];
}

Child::~Child() {
  if (pid_ > 0) {
    kill(SIGKILL);
    wait();
  }
  ::close(in_);
  ::close(out_);
}

std::string Child::line() {
  for (;;) {
    if (size_t const end = buffer_.find('\n'); end != std::string::npos) {
      std::string const line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      return line;
    }
    char piece[4096];
    ssize_t const size = ::read(out_, piece, sizeof piece);
    if (size <= 0) fail("a second process ended without its result");
    buffer_.append(piece, static_cast<size_t>(size));
  }
}

void Child::tell() {
  if (::write(in_, "\n", 1) != 1) fail("a second process does not listen");
}

void Child::kill(int signal) {
  killed_ = true;
  ::kill(pid_, signal);
}

void Child::wait() {
  int status = 0;
  ::waitpid(std::exchange(pid_, -1), &status, 0);
  if (!killed_ && status != 0) fail("a second process failed");
}

void say(std::string const& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void say(double number) {
  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%.17g", number);
  say(std::string(buffer));
}

void heard() {
  char byte = 0;
  if (::read(0, &byte, 1) != 1) std::exit(0);
}

}  // namespace Bench
