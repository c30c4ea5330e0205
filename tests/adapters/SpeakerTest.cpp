/// The speaker's adapter against GoBGP itself, and against servers that are none.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "Orb/Text.h"
#include "adapters/FakeServer.h"
#include "adapters/gobgp/Speaker.h"
#include "support/Gobgpd.h"

namespace Gobgp {

namespace {

using Agent::SourceState;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using TestSupport::Gobgpd;

/// A speaker's adapter with what it told.
class SpeakerUser;
std::set<SpeakerUser*> users;

class SpeakerUser {
 public:
  static Speaker::Options optionsOf(std::string const& endpoint, std::uint32_t as,
                                    std::string const& routerId) {
    return {.endpoint = endpoint,
            .identity = {as, Wirix::IpAddr(routerId)},
            .answer = 5s,
            .settle = 20s,
            .quiet = 1s,
            .retryMin = 20ms,
            .retryMax = 200ms};
  }
  SpeakerUser(Agent::Loop& loop, Speaker::Options const& options)
      : speaker(loop, options,
                {[this](Agent::Event const& event) { take(event); },
                 [this](SourceState, std::string const& cause) {
                   if (!cause.empty()) lines.push_back(cause);
                 },
                 [this](std::string const& line) { lines.push_back(line); }}) {
    users.insert(this);
  }
  ~SpeakerUser() { users.erase(this); }
  SpeakerUser(Agent::Loop& loop, Gobgpd const& gobgpd, std::string const& routerId)
      : SpeakerUser(loop, optionsOf(gobgpd.endpoint(), gobgpd.as(), routerId)) {}
  SpeakerUser(Agent::Loop& loop, Gobgpd const& gobgpd) : SpeakerUser(loop, gobgpd, gobgpd.routerId()) {}

  void host(unsigned vni, std::string const& mac, std::string const& vtep, unsigned seq = 0) {
    QorEvpn::Host row{QorEvpn::MacVniPair(Wirix::EthAddr(mac), Vxlan::Vni(vni))};
    row.vtepAddrIs(Wirix::IpAddr(vtep));
    row.seqNoIs(Seqno32(seq));
    speaker.hostIs(row);
  }
  void hostDel(unsigned vni, std::string const& mac) {
    speaker.hostDel(QorEvpn::MacVniPair(Wirix::EthAddr(mac), Vxlan::Vni(vni)));
  }
  bool isSynced() const { return speaker.state() == SourceState::synced; }
  bool isQuiet() const { return isSynced() && speaker.show()["waiting"] == 0; }
  std::uint64_t sent() const { return speaker.show()["sent"]; }

  /// "VNI MAC VTEP seq" and "VNI VTEP".
  std::set<std::string> rows() const {
    std::set<std::string> result;
    for (auto const& [key, value] : learned) result.insert(key + value);
    return result;
  }

  std::map<std::string, std::string> learned;
  std::vector<std::string> lines;
  std::vector<bool> capabilities;
  std::size_t removals = 0;
  Speaker speaker;

 private:
  void take(Agent::Event const& event) {
    using Agent::Op;
    EXPECT_EQ(event.from, Agent::Origin::evpn);
    EXPECT_NE(speaker.state(), SourceState::connecting);
    std::string const vni = Orb::toText(event.vni) + ' ';
    if (event.op == Op::capability) capabilities.push_back(event.value);
    if (event.op == Op::mac) {
      EXPECT_EQ(event.preference, 16);
      learned[vni + Orb::toText(event.mac)] = ' ' + Orb::toText(event.vtep) + ' ' + Orb::toText(event.seq);
    }
    if (event.op == Op::flood) learned[vni + Orb::toText(event.vtep)] = "";
    if (event.op == Op::macDel) removals += learned.erase(vni + Orb::toText(event.mac));
    if (event.op == Op::floodDel) removals += learned.erase(vni + Orb::toText(event.vtep));
  }
};

class SpeakerTest : public testing::Test {
 protected:
  /// Turns the loop until that holds.
  void await(std::function<bool()> const& condition) {
    ASSERT_TRUE(TestSupport::becomes(loop, condition)) << "it never held; " << context();
  }

  std::string context() const {
    std::string text;
    for (SpeakerUser* const user : users) {
      text += user->speaker.show().dump();
      for (auto const& row : user->rows()) text += "\n  " + row;
      for (auto const& line : user->lines) text += "\n  " + line;
      text += "\n";
    }
    return text;
  }

  Agent::Loop loop;
};

constexpr unsigned lastVni = 0xFFFFFF;

// ---- HTTP/2, as far as servers of these tests speak it

enum : char { dataFrame = 0, headersFrame = 1, settingsFrame = 4, endOfStream = 1, endOfHeaders = 4 };

std::string frame(char type, int flags, unsigned char stream, std::string const& content) {
  using namespace std::string_literals;
  return "\0\0"s + static_cast<char>(content.size()) + type + static_cast<char>(flags) + "\0\0\0"s +
         static_cast<char>(stream) + content;
}
std::string field(std::string const& name, std::string const& value) {
  return std::string(1, '\0') + static_cast<char>(name.size()) + name + static_cast<char>(value.size()) +
         value;
}
std::string const settings = frame(settingsFrame, 0, 0, "");
std::string const status200 = "\x88";
std::string messageFrame(unsigned char stream, google::protobuf::MessageLite const& message) {
  std::string const text = message.SerializeAsString();
  return frame(dataFrame, 0, stream, std::string(4, '\0') + static_cast<char>(text.size()) + text);
}

TEST_F(SpeakerTest, CarriesRowsOfAllVnisToAnotherSiteAndTakesThemBack) {
  Gobgpd const west(1, {2}), east(2, {1});
  SpeakerUser here(loop, west), there(loop, east);
  here.speaker.beginSending();
  // RD and label alone would take the first two for one route.
  here.host(1, "02:00:00:00:00:01", "10.99.0.11");
  here.host(65537, "02:00:00:00:00:01", "10.99.0.12", 7);
  here.host(0, "02:00:00:00:00:01", "10.99.0.13");
  here.host(lastVni, "02:00:00:00:00:01", "10.99.0.13", 0xFFFFFFFF);
  here.speaker.floodIs({Vxlan::Vni(65537), Wirix::IpAddr("10.99.0.12")});
  here.speaker.floodIs({Vxlan::Vni(lastVni), Wirix::IpAddr("10.99.0.12")});
  await([&] { return there.learned.size() == 6 && !there.capabilities.empty(); });
  EXPECT_THAT(there.rows(), UnorderedElementsAre("1 02:00:00:00:00:01 10.99.0.11 0", "65537 10.99.0.12",
                                                 "65537 02:00:00:00:00:01 10.99.0.12 7",
                                                 "0 02:00:00:00:00:01 10.99.0.13 0", "16777215 10.99.0.12",
                                                 "16777215 02:00:00:00:00:01 10.99.0.13 4294967295"));
  EXPECT_THAT(there.capabilities, ElementsAre(true));

  there.speaker.beginSending();
  there.host(1, "02:00:00:00:00:02", "10.99.0.21");
  here.host(1, "02:00:00:00:00:01", "10.99.0.12", 1);
  here.hostDel(65537, "02:00:00:00:00:01");
  here.speaker.floodDel({Vxlan::Vni(65537), Wirix::IpAddr("10.99.0.12")});
  await([&] { return there.removals == 2 && here.learned.size() == 1; });
  EXPECT_EQ(there.learned["1 02:00:00:00:00:01"], " 10.99.0.12 1");
  EXPECT_EQ(here.learned["1 02:00:00:00:00:02"], " 10.99.0.21 0");
  EXPECT_THAT(here.lines, IsEmpty());
}

TEST_F(SpeakerTest, SendsDifferencesOnlyToASpeakerThatHasRoutesOfAnEarlierRun) {
  Gobgpd const west(1, {});
  auto const tell = [](SpeakerUser& user, unsigned hosts) {
    for (unsigned i = 1; i <= hosts; ++i) user.host(70000 + i, "02:00:00:00:00:01", "10.99.0.11", i % 3);
    user.speaker.floodIs({Vxlan::Vni(5000), Wirix::IpAddr("10.99.0.11")});
  };
  std::string const foreign =
      "macadv 02:00:00:00:00:09 0.0.0.0 esi AS 65000 1 etag 0 label 5000 rt 65001:5000";
  EXPECT_EQ(west.command("global rib -a evpn add " + foreign + " encap vxlan rd 10.99.0.9:1"), 0);
  {
    SpeakerUser first(loop, west);
    tell(first, 600);
    await([&] { return first.isSynced(); });
    EXPECT_EQ(first.sent(), 0U);  // not before it is whole
    first.speaker.beginSending();
    await([&] { return first.isQuiet(); });
    EXPECT_EQ(first.sent(), 601U);
  }
  SpeakerUser second(loop, west);
  tell(second, 598);
  second.host(70001, "02:00:00:00:00:01", "10.99.0.12", 9);
  second.speaker.beginSending();
  await([&] { return second.isQuiet(); });
  EXPECT_EQ(second.sent(), 3U);  // one changed, two withdrawn

  // Somebody withdraws a route of ours behind our back.
  EXPECT_EQ(west.command("global rib -a evpn del multicast 10.99.0.11 rd 10.99.0.1:5000 etag 5000"), 0);
  await([&] { return second.sent() == 4; });
  await([&] { return second.isQuiet(); });
  EXPECT_EQ(west.command("global rib -a evpn | grep -q rd:10.99.0.9:1"), 0);
}

TEST_F(SpeakerTest, TakesOfSeveralRoutesTheHighestSequenceNumberThenTheLowestVtep) {
  Gobgpd const west(1, {2}), east(2, {1});
  SpeakerUser here(loop, west), left(loop, east, "10.99.0.2"), right(loop, east, "10.99.0.3");
  left.speaker.beginSending();
  right.speaker.beginSending();
  std::string const mac = "02:00:00:00:00:01";
  auto const learns = [&](std::string const& value) {
    await([&] { return here.learned.contains("1 " + mac) && here.learned["1 " + mac] == value; });
  };
  left.host(1, mac, "10.99.0.22", 1);
  learns(" 10.99.0.22 1");
  right.host(1, mac, "10.99.0.31", 2);
  learns(" 10.99.0.31 2");
  left.host(1, mac, "10.99.0.22", 2);
  learns(" 10.99.0.22 2");
  left.hostDel(1, mac);
  learns(" 10.99.0.31 2");
  EXPECT_EQ(here.removals, 0U);

  // With an IP address it is one more route of the same MAC; what no row can hold is counted, and named once.
  std::string const add = "global rib -a evpn add macadv " + mac;
  std::string const rest = " esi AS 65000 1 etag 0 label 1 rd 10.99.0.4:1 rt 65002:1 encap vxlan nexthop ";
  EXPECT_EQ(east.command(add + " 192.168.0.1" + rest + "10.99.0.41"), 0);
  EXPECT_EQ(east.command(add + " 192.168.0.2" + rest + "2001:db8::1"), 0);
  EXPECT_EQ(east.command(add + " 192.168.0.3" + rest + "2001:db8::1"), 0);
  right.hostDel(1, mac);
  learns(" 10.99.0.41 0");
  std::string const cause = "with an IPv6 next hop";
  await([&] { return here.speaker.show()["unusable"][cause] == 2; });
  EXPECT_THAT(here.lines, ElementsAre(HasSubstr(cause)));
  EXPECT_EQ(east.command("global rib -a evpn del macadv " + mac + " 192.168.0.1" + rest + "10.99.0.41"), 0);
  await([&] { return here.learned.empty(); });
}

/// Its neighbour keeps what it had announced until it says that it has told all; by then it has.
TEST_F(SpeakerTest, ASpeakerThatRestartsGracefullyHasItsRoutesBeforeItsNeighbourDropsThem) {
  Gobgpd west(1, {2}, true);
  Gobgpd const east(2, {1}, true);
  SpeakerUser here(loop, west), there(loop, east);
  here.speaker.beginSending();
  for (unsigned i = 1; i <= 9; ++i) here.host(i, "02:00:00:00:00:01", "10.99.0.11", i % 2);
  here.speaker.floodIs({Vxlan::Vni(1), Wirix::IpAddr("10.99.0.11")});
  await([&] { return there.learned.size() == 10 && there.isSynced(); });
  west.kill();
  await([&] { return here.speaker.state() == SourceState::lost; });
  west.start();
  here.hostDel(9, "02:00:00:00:00:01");
  here.host(10, "02:00:00:00:00:01", "10.99.0.11");
  await([&] { return there.learned.contains("10 02:00:00:00:00:01") && there.removals != 0; });
  EXPECT_EQ(there.removals, 1U);
  EXPECT_EQ(there.learned.size(), 10U);
  EXPECT_THAT(there.capabilities, ElementsAre(true));
}

TEST_F(SpeakerTest, NamesEndpointAndCauseOfEachFaultAndTriesAgain) {
  // The headers of the first answer are its end too.
  std::string const unimplemented =
      settings + frame(headersFrame, endOfStream | endOfHeaders, 1,
                       status200 + field("grpc-status", "12") + field("grpc-message", "Nope"));
  using namespace std::string_literals;
  auto const message = [](std::string const& octets) {
    return settings + frame(headersFrame, endOfHeaders, 1, status200) + frame(dataFrame, 0, 1, octets);
  };
  struct Case {
    std::string answer;
    bool ends, listens;
    std::string cause;
  };
  Case const cases[] = {{"", false, false, "Connection refused"},
                        {settings, true, true, "closed the connection"},
                        {settings, false, true, "no answer to GetBgp within"},
                        {"SSH-2.0-OpenSSH\r\n\r\n..................", false, true, "does not speak HTTP/2"},
                        {unimplemented, false, true, "does not have this interface (GoBGP 3): Nope"},
                        {message("\0\0\0\0\2\xff\xff"s), false, true, "the answer to GetBgp cannot be read"},
                        {message("\1\0\0\0\2xx"s), false, true, "is compressed or too long"}};
  for (Case const& each : cases) {
    unsigned port = 0;
    Agent::Fd socket = TestSupport::boundSocket(port);
    std::string const endpoint = "localhost:" + std::to_string(port);
    std::set<int> answered;
    std::optional<TestSupport::FakeServer> server;
    if (each.listens) {
      server.emplace(loop, std::move(socket), [&](std::string&, int attempt) {
        return answered.insert(attempt).second ? each.answer + (each.ends ? "CLOSE" : "") : "";
      });
      server->isSlow = true;
    }
    auto options = SpeakerUser::optionsOf(endpoint, 65001, "10.99.0.1");
    options.answer = each.cause.starts_with("no answer") ? 300ms : 60s;
    if (!each.listens) options.retryMin = 300ms, options.retryMax = 2s;
    SpeakerUser user(loop, options);
    await([&] { return !user.lines.empty(); });
    EXPECT_THAT(user.lines[0], StartsWith(endpoint + ": "));
    EXPECT_THAT(user.lines[0], HasSubstr(each.cause));
    EXPECT_THAT(std::string(user.speaker.show()["lastError"]), HasSubstr(each.cause));
    // It tries again, after pauses that grow.
    await([&] { return each.listens ? user.lines.size() > 2 : user.lines.back().ends_with("again in 2 s"); });
    EXPECT_EQ(user.speaker.state(), SourceState::connecting);
  }
  for (char const* const endpoint : {"", "127.0.0.1", "127.0.0.1:0", "127.0.0.1:65536", "host:1", ":1"}) {
    EXPECT_THROW(Agent::HostPort{endpoint}, std::invalid_argument) << endpoint;
  }
}

/// By a server of the test's own, since GoBGP takes whatever the adapter sends.
TEST_F(SpeakerTest, ARouteThatTheSpeakerRefusesHoldsUpNoOther) {
  constexpr int refused = 5;
  std::multiset<int> taken;  // last octets of MACs
  std::size_t refusals = 0;
  auto const add = [&](std::string const& request) {
    apipb::AddPathStreamRequest message;
    std::multiset<int> macs;
    message.ParseFromString(request.substr(5));
    // Behind the address stand an IP address's length, which is 0, and a label. Other requests have no paths.
    for (apipb::Path const& path : message.paths()) {
      if (path.nlri_binary().size() > 5) macs.insert(path.nlri_binary()[path.nlri_binary().size() - 5]);
    }
    bool const isRefused = macs.contains(refused);
    isRefused ? void(++refusals) : taken.merge(macs);
    return isRefused ? "3" : "0";
  };
  apipb::GetBgpResponse bgp;
  bgp.mutable_global()->set_asn(65001);
  apipb::WatchEventResponse initialised;
  initialised.mutable_peer()->set_type(2);
  std::map<unsigned char, std::string> requests;  // by stream
  auto const answer = [&](std::string& input, int) {
    std::string output;
    if (input.starts_with("PRI ")) input.erase(0, 24), output = settings;
    auto const octet = [&](std::size_t i) { return static_cast<unsigned char>(input[i]); };
    for (std::size_t end; input.size() >= 9 && input.size() >= (end = 9U + octet(1) * 256U + octet(2));
         input.erase(0, end)) {
      if (input[3] != dataFrame) continue;
      unsigned char const stream = octet(8);
      requests[stream] += input.substr(9, end - 9);
      if ((input[4] & endOfStream) == 0) continue;
      output += frame(headersFrame, endOfHeaders, stream, status200);
      if (stream == 1) output += messageFrame(stream, bgp);
      if (stream == 3) output += messageFrame(stream, initialised);
      if (stream == 3) continue;  // the watch has no end
      output += frame(headersFrame, endOfStream | endOfHeaders, stream,
                      field("grpc-status", add(requests[stream])));
    }
    return output;
  };
  unsigned port = 0;
  TestSupport::FakeServer const server(loop, TestSupport::boundSocket(port), answer);
  SpeakerUser user(loop, SpeakerUser::optionsOf("127.0.0.1:" + std::to_string(port), 65001, "10.99.0.1"));
  for (int i = 1; i <= 9; ++i) user.host(5000, "02:00:00:00:00:0" + std::to_string(i), "10.99.0.11");
  user.speaker.beginSending();
  await([&] { return user.speaker.show()["refusedRoutes"] == 1 && user.speaker.show()["waiting"] == 0; });
  EXPECT_THAT(taken, ElementsAre(1, 2, 3, 4, 6, 7, 8, 9));
  EXPECT_EQ(refusals, 2U);  // of the batch, of the route
  EXPECT_THAT(user.lines, ElementsAre(HasSubstr("VNI 5000 MAC 02:00:00:00:00:05 is refused")));
}

}  // namespace

}  // namespace Gobgp
