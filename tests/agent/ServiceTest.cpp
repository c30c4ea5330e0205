#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <sstream>

#include "AgentSite.h"
#include "support/Database.h"

namespace {

using testing::HasSubstr;
using TestSupport::Program, TestSupport::run;
using Words = std::vector<std::string>;

/// For programs that are started while it is there.
struct Environment {
  Environment(std::string variable, std::string const& value) : name(std::move(variable)) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  ~Environment() { unsetenv(name.c_str()); }
  std::string name;
};

/// Plays systemd.
struct Manager {
  explicit Manager(std::string const& path) : fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    timeval const patience{60, 0};
    setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  std::string next() const {
    char text[256];
    ssize_t const size = recv(fd.get(), text, sizeof text, 0);
    return size < 0 ? "nothing" : std::string(text, static_cast<std::size_t>(size));
  }
  /// The next message that is no sign of life, and how many of those came before it, at most `limit`.
  std::pair<std::string, int> news(int limit = 1'000'000) const {
    for (int signs = 0;; ++signs) {
      std::string const message = signs == limit ? "" : next();
      if (message != "WATCHDOG=1") return {message, signs};
    }
  }
  Agent::Fd fd;
};

TEST(ServiceTest, TheManagerIsToldOfLifeOfReadinessOnceSyncedAndOfTheEnd) {
  for (std::string const side : {"agent", "evpn"}) {
    AgentSite site;
    std::string const path = site.folder.path() + "/notify";
    Manager const manager(path);
    Environment const where("NOTIFY_SOCKET", path), often("WATCHDOG_USEC", "4000");
    Program process({side, "--dir", site.dir, "--feed", "-"});
    std::string const from = "{\"from\":\"" + std::string(side == "evpn" ? side : "controller");
    process.write(from + R"(","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1"})" + '\n');
    EXPECT_EQ(manager.news(50), std::pair(std::string(), 50)) << "not every source has told its state";
    process.write(from + "\",\"op\":\"synced\"}\n");
    EXPECT_EQ(manager.news().first, "READY=1") << process.errors();
    EXPECT_EQ(manager.news(20), std::pair(std::string(), 20)) << "once only";
    process.signal(SIGTERM);
    EXPECT_EQ(manager.news().first, "STOPPING=1");
    EXPECT_EQ(process.wait(), 0);
  }
}

/// The words that bash offers behind those that were typed.
std::string completed(std::string const& script, std::string const& typed) {
  std::string const ask = "source " + script + "; COMP_WORDS=(" + typed +
                          "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qorevpn; echo ${COMPREPLY[@]}";
  return TestSupport::shell("bash -c '" + ask + "'");
}

/// The file beside this has every option that there is, and what they name is made.
TEST(ServiceTest, AFileGivesEveryOptionTheEnvironmentTheSiteAndBashCompletesThem) {
  AgentSite site;
  std::string const at = site.folder.path() + '/', script = at + "completion";
  std::ofstream(at + "feed")
      << R"({"from":"evpn","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1"})" << '\n';
  std::ofstream(script) << run({"manual", "completion"}).out;
  EXPECT_EQ(completed(script, "qorevpn wa"), "watch\n");
  EXPECT_EQ(completed(script, "qorevpn agent --rec"), "--record --record-size --record-files\n");
  std::string text = TestSupport::sourceText("tests/agent/ServiceTest.conf");
  text = std::regex_replace(text, std::regex("@"), at);
  text = std::regex_replace(text, std::regex("loopback"), TestSupport::ownLoopback(1));
  std::ofstream(at + "conf") << text;
  for (std::string const side : {"evpn", "agent"}) {
    std::istringstream names(completed(script, "qorevpn " + side + " --"));
    std::string const section = text.substr(text.find('[' + side), text.find("\n\n", text.find('[' + side)));
    for (std::string name; names >> name;)
      EXPECT_TRUE(name.starts_with("--help") ||
                  section.find('\n' + name.substr(2) + " = ") != std::string::npos)
          << name;
    auto const ended = run({"--config", at + "conf", side});
    EXPECT_EQ(ended.status, 0) << ended.err;
    for (std::string const made : {".rec", ".log"})
      EXPECT_GT(std::filesystem::file_size(at + side + made), 0U);
  }
  EXPECT_TRUE(std::filesystem::exists(at + "agent.trace"));
  Environment const where("QOREVPN_DIR", at + "site");
  EXPECT_THAT(run({"show", "hosts", "--learned"}).out, HasSubstr("02:00:00:00:00:01"));
  std::ofstream(at + "wrong") << "[agent]\nnosuch = 1\n";
  EXPECT_THAT(run({"--config", at + "wrong", "agent"}).err, HasSubstr(at + "wrong: "));
}

}  // namespace
