#include "support/Database.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

namespace TestSupport {

std::string shell(std::string const& command) {
  FILE* const pipe = ::popen(command.c_str(), "r");
  std::string output;
  char piece[4096];
  while (std::size_t const count = std::fread(piece, 1, sizeof piece, pipe)) output.append(piece, count);
  EXPECT_EQ(::pclose(pipe), 0) << command;
  return output;
}

void awaitAnswer(std::string const& command) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMs);
  while (std::system((command + " >/dev/null 2>&1").c_str()) != 0) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << command;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

Database::Database(std::vector<std::string> options) : options_(std::move(options)) {
  shell("ovsdb-tool create " + folder() + "/vtep.db /usr/share/openvswitch/vtep.ovsschema");
  start();
}

void Database::start() {
  std::vector<std::string> arguments = {"ovsdb-server",
                                        folder() + "/vtep.db",
                                        "--remote=punix:" + folder() + "/db.sock",
                                        "--unixctl=" + folder() + "/ctl",
                                        "--log-file=" + folder() + "/log",
                                        "-vconsole:off"};
  arguments.insert(arguments.end(), options_.begin(), options_.end());
  ::unlink((folder() + "/db.sock").c_str());
  server_ = std::make_unique<Child>([&](Child&) { execute(arguments, "/dev/null"); });
  awaitAnswer("ovsdb-client list-dbs " + endpoint());
}

std::string Database::port() const {
  std::ifstream log(folder() + "/log");
  std::string const text(std::istreambuf_iterator<char>(log), {});
  std::smatch match;
  EXPECT_TRUE(std::regex_search(text, match, std::regex("listening on port ([0-9]+)"))) << text;
  return match[1];
}

std::string Database::vtep(std::string const& command) const {
  return shell("vtep-ctl --timeout=60 --db=" + endpoint() + ' ' + command);
}

std::vector<std::string> Database::remoteMacs(std::string const& logicalSwitch) const {
  std::istringstream lines(vtep("list-remote-macs " + logicalSwitch));
  std::vector<std::string> result;
  for (std::string line; std::getline(lines, line);) {
    auto const arrow = line.find(" -> vxlan_over_ipv4/");
    if (arrow != std::string::npos)
      result.push_back(line.substr(2, arrow - 2) + ' ' + line.substr(arrow + 20));
  }
  std::sort(result.begin(), result.end());
  return result;
}

std::size_t Database::rows(std::string const& table) const {
  std::istringstream lines(vtep("--bare --columns=_uuid list " + table));
  std::size_t result = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) ++result;
  }
  return result;
}

}  // namespace TestSupport
