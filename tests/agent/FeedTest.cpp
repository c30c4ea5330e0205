#include <gtest/gtest.h>

#include <sstream>

#include "agent/feed/Feed.h"
#include "support/Paths.h"

namespace {

using Agent::parseEvent;

// Lines that are no events, and what is said of each, are in the file beside this.
TEST(FeedTest, SaysWhatIsWrongWithALine) {
  std::string const expected = TestSupport::sourceText("tests/agent/FeedTest.transcript");
  std::string said;
  std::istringstream lines(expected);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("  ")) continue;
    said += line + "\n  ";
    try {
      parseEvent(line);
    } catch (Agent::EventError const& error) {
      said += error.what();
    }
    said += '\n';
  }
  EXPECT_EQ(said, expected);
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
        seen += std::to_string(line->number) + (line->tooLong ? "!" : ":");
        (seen += line->text) += ' ';
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
