#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "AgentSite.h"

namespace {

using TestSupport::Program;
using Figures = std::map<std::string, double>;

constexpr std::uint16_t port = 9464;
std::string const endpoint = TestSupport::ownLoopback(1) + ':' + std::to_string(port);

/// A connection to the endpoint; none if nobody listens.
Agent::Fd connected() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, TestSupport::ownLoopback(1).c_str(), &address.sin_addr);
  Agent::Fd fd(::socket(AF_INET, SOCK_STREAM, 0));
  if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return {};
  return fd;
}

/// What comes back for a request; empty if nobody listens.
std::string http(std::string const& request) {
  Agent::Fd const fd = connected();
  if (!fd) return {};
  EXPECT_EQ(write(fd.get(), request.data(), request.size()), static_cast<ssize_t>(request.size()));
  std::string answer;
  char piece[4096];
  for (ssize_t count; (count = read(fd.get(), piece, sizeof piece)) > 0;)
    answer.append(piece, static_cast<std::size_t>(count));
  return answer;
}

Figures figuresIn(std::string const& text) {
  Figures figures;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    auto const blank = line.rfind(' ');
    if (line.starts_with("qorevpn_")) figures[line.substr(0, blank)] = std::stod(line.substr(blank));
  }
  return figures;
}

TEST(MetricsTest, FiguresOverHttpAndOnTheCommandLineAreThoseThatShowHas) {
  AgentSite site;
  auto const printed = [&] { return figuresIn(TestSupport::run({"metrics", "--dir", site.dir}).out); };
  std::string const feed = site.folder.path() + "/events";
  std::filesystem::copy_file(recordingPath("fabric-3vni.jsonl"), feed);
  std::ofstream(feed, std::ios::app)
      << R"({"from":"controller","op":"mac","vni":5000,"mac":"ff:ff:ff:ff:ff:ff","vtep":"10.99.0.11"})"
      << '\n';
  Program agent({"agent", "--dir", site.dir, "--feed", feed, "--with-evpn", "--metrics", endpoint});
  ASSERT_TRUE(site.settles(Agent::Expectation::ofFile(recordingPath("fabric-3vni.end.json"))));
  // Who connects and says nothing is in nobody's way.
  std::vector<Agent::Fd> idle;
  for (int i = 0; i < 40; ++i) ASSERT_TRUE(idle.emplace_back(connected()));
  // Both are taken until they agree: what follows from a source's state is written a turn later.
  std::string answer;
  Figures figures, now;
  auto const agree = [&] {
    answer = http("GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n");
    figures = figuresIn(answer);
    now = printed();
    return std::ranges::all_of(figures, [&](auto const& each) {
      return each.first.starts_with("qorevpn_longest_turn") || now[each.first] == each.second;
    });
  };
  ASSERT_TRUE(becomes(agree));
  EXPECT_EQ(now.size(), figures.size());
  EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\n")) << answer.substr(0, 100);
  EXPECT_TRUE(http("GET /else HTTP/1.1\r\n\r\n").starts_with("HTTP/1.1 404"));
  EXPECT_TRUE(http("POST /metrics HTTP/1.1\r\n\r\n").starts_with("HTTP/1.1 405"));

  std::set<std::string> names;
  for (auto const& each : figures) names.insert(each.first.substr(0, each.first.find('{')));
  std::ifstream file(TestSupport::sourcePath("share/grafana/qorevpn.json"));
  std::string const board{std::istreambuf_iterator<char>(file), {}};
  EXPECT_TRUE(nlohmann::json::accept(board));
  std::regex const metric("qorevpn_[a-z_]+");
  for (std::sregex_iterator each(board.begin(), board.end(), metric), end; each != end; ++each)
    EXPECT_TRUE(names.contains(each->str())) << each->str() << " is on the board";

  auto const show = [&](std::string const& what) {
    return nlohmann::json::parse(TestSupport::run({"show", "-j", "--dir", site.dir, what}).out)[what];
  };
  auto const figure = [&](std::string const& name) {
    EXPECT_TRUE(figures.contains(name)) << name;
    return figures.contains(name) ? figures.at(name) : -1;
  };
  for (auto const& each : show("counters")) {
    std::string const labels =
        "{process=\"agent\",table=" + each["owner"].dump() + ",operation=" + each["name"].dump() + '}';
    EXPECT_EQ(figure("qorevpn_operations_total" + labels), each["value"]) << labels;
  }
  for (auto const& each : show("tables"))
    EXPECT_EQ(figure("qorevpn_table_rows{table=" + each["table"].dump() + '}'), each["rows"]);
  EXPECT_LT(figure(R"(qorevpn_table_changes_total{table="exported/host"})"), 1e6) << "it begins at 0";
  auto const state = show("agent");
  EXPECT_EQ(figure("qorevpn_served_vnis"), state["servedVnis"]);
  EXPECT_EQ(figure("qorevpn_integration"), 1);
  for (auto const& each : state["sources"]) {
    std::string const labels =
        R"({process="agent",source=)" + each["name"].dump() + ",kind=" + each["kind"].dump();
    EXPECT_EQ(figure("qorevpn_source_entries" + labels + '}'), each["entries"]);
    EXPECT_EQ(figure("qorevpn_source_state" + labels + R"(,state="synced"})"), 1);
    for (auto const& [op, count] : each["events"].items())
      EXPECT_EQ(figure("qorevpn_events_total" + labels + ",op=\"" + op + "\"}"), count);
  }
  EXPECT_EQ(figure(R"(qorevpn_refused_total{process="agent",source=")" + feed +
                   R"(",kind="feed",reason="group MAC"})"),
            1);

  EXPECT_GT(figure("qorevpn_moves_total"), 0);
  EXPECT_EQ(figure("qorevpn_duplicates_total"), state["duplicatesReported"]);
  EXPECT_EQ(figure("qorevpn_resynchronisations_total"), 0);
  agent.signal(SIGKILL);
  agent.wait();
  // Who looks at a process in /proc keeps its memory, and with it the mark of a writer, for a moment.
  ASSERT_TRUE(becomes([&] {
    now = printed();
    return std::ranges::none_of(now, [](auto const& each) {
      return each.first.starts_with("qorevpn_table_writer_alive") && each.second != 0;
    });
  }));
  EXPECT_FALSE(now.contains(R"(qorevpn_up{process="agent"})"));
  EXPECT_EQ(now[R"(qorevpn_table_rows{table="exported/host"})"],
            figure(R"(qorevpn_table_rows{table="exported/host"})"));

  // The EVPN side has its own.
  double const learnedHosts = figure(R"(qorevpn_table_rows{table="learned/host"})");
  Program evpn({"evpn", "--dir", site.dir, "--feed", feed, "--metrics", endpoint});
  std::string const synced =
      R"(qorevpn_source_state{process="evpn",source=")" + feed + R"(",kind="feed",state="synced"})";
  ASSERT_TRUE(becomes([&] { return agree() && figures[synced] == 1; })) << evpn.errors();
  EXPECT_EQ(figure(R"(qorevpn_table_rows{table="learned/host"})"), learnedHosts);
  EXPECT_GT(figure(R"(qorevpn_longest_turn_seconds{process="evpn"})"), 0);
}

}  // namespace
