#pragma once

#include <random>
#include <utility>

#include "Brine/Copy.h"

/// A writer, and a reader's copy of what it writes.
class WriterAndCopy : public testing::Test {
 protected:
  ~WriterAndCopy() override {
    Brine::sys = Brine::realSystem();
    interlude = nullptr;
  }

  /// What happens in the middle of the next system call of the kind that a test has chosen, once.
  static inline std::function<void()> interlude;
  static void play() {
    if (auto const once = std::exchange(interlude, nullptr)) once();
  }

  void mount(bool repair = false) {
    ASSERT_EQ(writer_.mount(folder_.options(Mode::writer, "table", repair)), MountStatus::mounted)
        << writer_.mountDetail();
  }
  /// Every row differs from all before.
  void write(uint64_t number) { writer_.write({{number, 1}, ++lastValue_, 0}); }
  void fill(uint64_t from, uint64_t to) {
    for (uint64_t number = from; number < to; ++number) write(number);
    writer_.endTurn();
  }
  /// A writer of so many rows, and a reader that was told of them all.
  void start(uint64_t rows) {
    mount();
    fill(0, rows);
    copy_.deliver();
  }
  void change(uint64_t keys) {
    uint64_t const number = random_() % keys;
    random_() % 3 != 0 ? write(number) : static_cast<void>(writer_.remove({number, 1}));
  }
  void expectCopied(Table const& table) {
    EXPECT_EQ(copy_.rows(), rowsOf(table));
    EXPECT_EQ(copy_.table.statistics().shadowKeys, copy_.rows().size());
  }
  /// After a delivery the copy is what the writer has.
  void expectFollowed() {
    copy_.deliver();
    expectCopied(writer_);
  }
  /// What a delivery makes of the reader.
  void expectStatus(MountStatus status) {
    copy_.table.deliver();
    EXPECT_EQ(copy_.table.mountStatus(), status);
  }

  TestFolder folder_;
  std::mt19937 random_{1};
  Table writer_;
  Copy copy_{folder_, Mode::keyshadow};
  uint64_t lastValue_ = 0;
};
