#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <fstream>
#include <functional>
#include <string>

#include "Brine/TestRows.h"

/// The rows that a walk shows. Damaged ones are as good as gone.
inline Model rowsOf(Table const& table) {
  Model rows;
  for (auto cursor = table.walk();;) {
    try {
      TestRow const* const row = cursor.next();
      if (row == nullptr) return rows;
      EXPECT_TRUE(rows.emplace(row->key, *row).second);
    } catch (Brine::CorruptionError const&) {
      // The next call passes it.
    }
  }
}

inline void expectSound(Table const& table) {
  for (auto const& violation : table.check())
    ADD_FAILURE() << violation.invariant << ": " << violation.detail;
}

inline Brine::Layout const testLayout(16, 16, 2, 4);

/// Bytes of the table's file as `edit` leaves them.
template <class Edit>
void editFile(TestFolder const& folder, uint64_t place, uint64_t size, Edit&& edit) {
  std::fstream file(folder.path() + "/table.table", std::ios::in | std::ios::out | std::ios::binary);
  std::string bytes(size, '\0');
  file.seekg(static_cast<std::streamoff>(place)).read(bytes.data(), std::ssize(bytes));
  edit(bytes);
  file.seekp(static_cast<std::streamoff>(place)) << bytes;
}
/// Row `id`, one of the first 16.
template <class Edit>
void editRow(TestFolder const& folder, uint64_t id, Edit&& edit) {
  auto const size = uint64_t{testLayout.rowStride()} * 8;
  editFile(folder, testLayout.extentOffset(0) + id * size, size, edit);
}
/// Damages it in both its copies.
inline void damageRow(TestFolder const& folder, uint64_t id) {
  editRow(folder, id, [](std::string& row) { row.replace(32, 32, 32, 'x'); });
}

/// A reader that keeps a copy of what it is shown. It fails where it is told of a removal that it cannot
/// place, or of nothing new; so every written row must differ from the row before.
class Copy {
 public:
  Copy(TestFolder const& folder, Mode mode) : folder_(folder), mode_(mode) {
    table.onChanged = [this](TestKey const& key) { onChanged(key); };
    table.onQuiesced = [this](bool quiesced) { quiesced_ = quiesced; };
    table.onCorruption = [this](std::string const& message) {
      if (!expectsDamage) ADD_FAILURE() << message;
    };
    table.mount(folder.options(mode));
  }

  void remount() {
    // What was shown stays shown: the next delivery tells how the table differs from it.
    table.unmount();
    table.mount(folder_.options(mode_));
  }
  void deliver() {
    table.deliver();
    EXPECT_TRUE(quiesced_);
  }
  /// Waits for the next wake. A wait of a minute is a hang.
  void await() { ASSERT_TRUE(isAwake(60000)) << "changes wait, but nothing wakes their reader"; }
  /// Delivers whenever it is woken, until its table has that status.
  void await(MountStatus status) {
    constexpr int manyWakes = 20;
    for (int wake = 0; wake < manyWakes && table.mountStatus() != status && isAwake(10000); ++wake) {
      table.deliver();
    }
    EXPECT_EQ(table.mountStatus(), status) << table.mountDetail();
  }
  bool isAwake(int patienceMs = 0) {
    pollfd poll{table.fd(), POLLIN, 0};
    return ::poll(&poll, 1, patienceMs) == 1;
  }
  Model const& rows() const { return rows_; }
  bool isQuiesced() const { return quiesced_; }

  Table table;
  bool expectsDamage = false;
  /// Called behind each change that the copy was told of.
  std::function<void()> afterwards = [] {};

 private:
  void onChanged(TestKey const& key) {
    auto const row = table.find(key);
    auto const known = rows_.find(key);
    EXPECT_TRUE(row || known != rows_.end()) << "told of the removal of " << key << ", which was not shown";
    EXPECT_FALSE(row && known != rows_.end() && known->second == *row) << "told twice of " << key;
    if (row) {
      rows_[key] = *row;
    } else {
      rows_.erase(key);
    }
    afterwards();
  }

  TestFolder const& folder_;
  Mode mode_;
  Model rows_;
  bool quiesced_ = false;
};
