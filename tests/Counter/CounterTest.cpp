#include "Counter/Counter.h"

#include <gtest/gtest.h>

namespace {

TEST(Counter, FoundByOwnerAndNameWhileItLives) {
  Counter::Counter first("tableA", "hostIs");
  Counter::Counter const other("tableA", "hostDel");
  Counter::Counter same("tableB", "hostIs");
  first.increment();
  first.increment();
  same.increment();
  {
    Counter::Counter twin("tableA", "hostIs");
    twin.increment();
    EXPECT_EQ(Counter::value("tableA", "hostIs"), 3U);
    std::string all;
    for (Counter::Counter const* each : Counter::counters()) all += each->owner() + "/" + each->name() + " ";
    EXPECT_EQ(all, "tableA/hostDel tableA/hostIs tableA/hostIs tableB/hostIs ");
  }
  EXPECT_EQ(Counter::value("tableA", "hostIs"), 2U);
  EXPECT_EQ(Counter::value("tableA", "hostDel"), 0U);
  EXPECT_EQ(Counter::value("tableB", "hostIs"), 1U);
  EXPECT_EQ(Counter::countersOf("tableA").size(), 2U);
  EXPECT_EQ(Counter::value("tableC", "hostIs"), 0U);
}

}  // namespace
