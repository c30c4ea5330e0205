#include "Trace/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/TraceCapture.h"

namespace {

using TestSupport::TraceCapture;
using Lines = std::vector<std::string>;

Trace::Handle handle("TraceTest");

// A piece whose text traces in its turn.
struct Nested {};
void appendText(std::string& out, Nested) {
  TRACE(handle, 2, "inner ", std::string(100, 'x'));
  out += "nested";
}

void handleHost(int& evaluated) {
  auto const count = [&evaluated] { return ++evaluated; };
  TRACE(handle, 3, "count ", count(), " on ", true, " off ", false, ' ', uint8_t{7}, " ", int64_t{-1});
}

TEST(Trace, DisabledEvaluatesNothingEnabledTellsAll) {
  TraceCapture capture("TraceTest", Trace::allLevels ^ 1U << 3);
  int evaluated = 0;
  handleHost(evaluated);
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(capture.take(), Lines());

  Trace::levelsIs("TraceTest", 1U << 3);
  handleHost(evaluated);
  EXPECT_EQ(capture.functions(), Lines{"handleHost"});
  EXPECT_EQ(capture.take(), Lines{"3 count 1 on true off false 7 -1"});
  if (evaluated == 1)
    TRACE(handle, 3, "as one statement");
  else
    FAIL();
  EXPECT_EQ(capture.take(), Lines{"3 as one statement"});
}

TEST(Trace, TracesNest) {
  TraceCapture capture("TraceTest");
  for (int round = 0; round < 2; ++round) {
    TRACE(handle, 1, "outer ", Nested(), " outer");
    EXPECT_EQ(capture.take(), (Lines{"2 inner " + std::string(100, 'x'), "1 outer nested outer"}));
  }
}

TEST(Trace, LevelsBelongToTheName) {
  EXPECT_FALSE(handle.isEnabled(0));
  Trace::levelsIs("TraceTest2", 1U << 0 | 1U << 9 | 1U << 10);
  Trace::Handle const first("TraceTest2");
  Trace::Handle const second("TraceTest2");
  auto const enabled = [](Trace::Handle const& each) {
    std::string levels;
    for (unsigned level = 0; level < 40; ++level) {
      if (each.isEnabled(level)) Orb::appendTexts(levels, level, " ");
    }
    return levels;
  };
  EXPECT_EQ(enabled(first), "0 9 ");
  Trace::enable("TraceTest2/3,4,8");
  EXPECT_EQ(enabled(first), "3 4 8 ");
  EXPECT_EQ(enabled(second), "3 4 8 ");
  EXPECT_EQ(enabled(handle), "");
  for (char const* wrong : {"", "/3", "TraceTest2", "TraceTest2/", "TraceTest2/3,", "TraceTest2/3 ",
                            "TraceTest2/**", "TraceTest2/*,3", "TraceTest2/-1", "TraceTest2/03"}) {
    EXPECT_THROW(Trace::enable(wrong), Orb::ParseError) << wrong;
  }
  EXPECT_THROW(Trace::enable("TraceTest2/1,10"), Orb::RangeError);
  EXPECT_EQ(Trace::levels("TraceTest2"), 1U << 3 | 1U << 4 | 1U << 8);
  Trace::enable("TraceTest2/*");
  EXPECT_EQ(enabled(second), "0 1 2 3 4 5 6 7 8 9 ");
}

// For the thread sanitizer above all.
TEST(Trace, SwitchedWhileAnotherThreadTraces) {
  TraceCapture capture("TraceTest");
  std::atomic<bool> isDone = false;
  std::atomic<int> traced = 0;
  std::thread tracer([&isDone] {
    while (!isDone) TRACE(handle, 5, "text");
  });
  for (int round = 0; round < 200; ++round) {
    Trace::levelsIs("TraceTest", 0);
    Trace::levelsIs("TraceTest", 1U << 5);
    Trace::sinkIs([&traced](Trace::Record const& record) { traced += record.text == "text"; });
    Trace::Handle const another("TraceTest");
    for (int const before = traced; traced == before;) std::this_thread::yield();
  }
  isDone = true;
  tracer.join();
}

TEST(Trace, DefaultSinkWritesALine) {
  testing::internal::CaptureStderr();
  Trace::writeToStandardError({"Name", 8, {"a/b.cpp", 12, "run"}, "Turning ON"});
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::MatchesRegex("....-..-..T..:..:..\\.......Z 8 Name run a/b.cpp:12 Turning ON\n"));
}

}  // namespace
