#include <gmock/gmock.h>

#include "agent/feed/Feed.h"

namespace {

using Agent::parseEvent;
using testing::HasSubstr, testing::ThrowsMessage;

TEST(FeedTest, SaysWhatIsWrongWithALine) {
  std::string const mac =
      R"("from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1")";
  struct {
    std::string line, fault;
  } const cases[] = {
      {"", "not JSON"},
      {"{" + mac, "not JSON, at column 84"},
      {"[1]", "not a JSON object"},
      {"{" + mac + ",\"seq\":1e999}", "out of range"},
      {"{" + mac + ",\"seq\":4294967296}", "seq: 4294967296 is not a number from 0 to 4294967295"},
      {"{" + mac + ",\"seq\":-1}", "seq: -1"},
      {"{" + mac + ",\"seq\":1.5}", "seq: 1.5"},
      {"{" + mac + ",\"preference\":256}", "preference: 256 is not a number from 0 to 255"},
      {"{" + mac + ",\"preference\":\"16\"}", "preference: \"16\""},
      {"{" + mac + ",\"t\":-0.1}", "t: -0.1"},
      {"{" + mac + ",\"t\":\"0\"}", "t: \"0\""},
      {"{" + mac + ",\"vni\":2}", "key \"vni\" occurs twice"},
      {"{" + mac + ",\"colour\":2}", "unknown key \"colour\""},
      {"{" + mac + ",\"on\":true}", "op 'mac' from controller has no key 'on'"},
      {R"({"op":"vni","vni":1})", "key 'from' is missing"},
      {R"({"from":"bgp","op":"vni","vni":1})", "from: \"bgp\" is not \"controller\" or \"evpn\""},
      {R"({"from":"evpn","vni":1})", "key 'op' is missing"},
      {R"({"from":"evpn","op":"learn","vni":1})", "op: \"learn\" is not a known operation"},
      {R"({"from":"evpn","op":"vni","vni":1})", "op 'vni' from evpn does not exist"},
      {R"({"from":"evpn","op":"enabled","value":true})", "does not exist"},
      {R"({"from":"controller","op":"capability","value":true})", "does not exist"},
      {R"({"from":"controller","op":"vni","vni":16777216})",
       "vni: 16777216 is not a number from 0 to 16777215"},
      {R"({"from":"controller","op":"vni"})", "needs key 'vni'"},
      {R"({"from":"controller","op":"enabled","value":1})", "value: 1 is not true or false"},
      {R"({"from":"evpn","op":"mac-del","vni":1,"mac":"2:0:0:0:0:1"})", "mac: \"2:0:0:0:0:1\" is not a MAC"},
      {R"({"from":"evpn","op":"flood","vni":1,"vtep":"10.0.0.256"})", "vtep: \"10.0.0.256\" is not an IPv4"},
      {R"({"from":"evpn","op":"flood","vni":1,"vtep":"10.0.0.1","mac":"02:00:00:00:00:01"})", "no key 'mac'"},
      {R"({"from":"evpn","op":"flood","vni":1,"vtep":"10.0.0.1","on":false})", "cannot be off"},
      {R"({"from":"controller","op":"multipath","vni":1,"mac":"02:00:00:00:00:01","vteps":["x"]})",
       "vteps: \"x\""},
      {R"({"from":"controller","op":"multipath","vni":1,"mac":"02:00:00:00:00:01"})", "needs key 'vteps'"},
  };
  for (auto const& each : cases) {
    EXPECT_THAT([&] { parseEvent(each.line); }, ThrowsMessage<Agent::EventError>(HasSubstr(each.fault)))
        << each.line;
  }
}

TEST(FeedTest, FillsInDefaultsAndTakesCapitals) {
  Agent::Event const flood =
      parseEvent(R"({"from":"controller","op":"flood","vni":16777215,"vtep":"10.0.0.1"})");
  EXPECT_TRUE(flood.on && !flood.time && flood.mac == Wirix::EthAddr() && flood.vni.value() == 16777215);
  Agent::Event const mac =
      parseEvent(R"({"t":1.5,"from":"evpn","op":"mac","vni":0,"mac":"02:00:00:00:AB:cD","vtep":"10.0.0.1"})");
  EXPECT_EQ(mac.mac, Wirix::EthAddr(0x0200, 0, 0xabcd));
  Agent::Event const dotted =
      parseEvent(R"({"from":"evpn","op":"mac","vni":0,"mac":"0200.0000.ABcD","vtep":"10.0.0.1"})");
  EXPECT_EQ(dotted.mac, mac.mac);
  EXPECT_TRUE(mac.time == 1.5 && mac.seq == Seqno32(0) && mac.preference == 16);
}

// However a stream is cut into pieces, the same lines come of it, with the same numbers.
TEST(FeedTest, CutsLinesOutOfAnyPieces) {
  std::string const tooLong(Agent::LineCutter::lengthLimit + 1, 'x');
  std::string const stream = "a\r\n\nbb\n" + tooLong + "\nc\n" + tooLong;
  for (std::size_t const piece : {std::size_t{1}, std::size_t{3}, std::size_t{65536}, stream.size()}) {
    Agent::LineCutter cutter;
    std::string seen;
    auto const take = [&] {
      while (auto const line = cutter.next()) {
        seen += std::to_string(line->number) + (line->tooLong ? "!" : ":") + line->text + ' ';
      }
    };
    for (std::size_t at = 0; at < stream.size(); at += piece) {
      cutter.append(std::string_view(stream).substr(at, piece));
      take();
    }
    cutter.end();
    take();
    EXPECT_EQ(seen, "1:a 2: 3:bb 4! 5:c 6! ") << piece;
  }
}

}  // namespace
