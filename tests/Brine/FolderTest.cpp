#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "Brine/Copy.h"
#include "support/Child.h"

namespace {

using Brine::Mode;
using Brine::MountStatus;
using Table = Brine::Table<TestRow>;

mode_t modeOf(std::string const& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(Folder, NoNameLeavesItOrMeetsAnother) {
  TestFolder const folder;
  std::string const names[] = {"../x", "a/b", "a", "A", ".", "..", "a.table", "a%2Fb", std::string("\0", 1),
                               "a\xff"};
  std::vector<Table> tables(std::size(names));
  for (size_t i = 0; i < std::size(names); ++i) {
    EXPECT_EQ(tables[i].mount(folder.options(Mode::writer, names[i])), MountStatus::mounted) << names[i];
  }
  size_t files = 0;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    files += entry.is_regular_file() && entry.path().parent_path() == folder.path() ? 1U : 0U;
  }
  EXPECT_EQ(files, 2 * std::size(names));
  EXPECT_EQ(Table().mount(folder.options(Mode::writer, "")), MountStatus::notPermitted);
}

TEST(Folder, FilesAreMadeForTheOwnerAndReadableForTheGroupWhateverTheMask) {
  TestFolder const folder;
  for (mode_t const mask : {0U, 077U}) {
    mode_t const former = ::umask(mask);
    Brine::MountOptions options = folder.options(Mode::writer);
    options.directory += "/below" + std::to_string(mask);
    EXPECT_EQ(Table().mount(options), MountStatus::mounted);
    ::umask(former);
    EXPECT_EQ(modeOf(options.directory), 0750U);
    EXPECT_EQ(modeOf(options.directory + "/table.table"), 0640U);
    EXPECT_EQ(modeOf(options.directory + "/table.lock"), 0600U);
  }
}

TEST(Folder, WhatSomebodyElseCouldHavePutThereIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  struct Case {
    char const* name;
    std::function<void(std::string const& folder)> plant;
    MountStatus writer = MountStatus::notPermitted;
    MountStatus reader = MountStatus::notPermitted;
  };
  auto const move = [](std::string const& folder, std::string const& name) {
    std::filesystem::create_directory(folder + "/elsewhere");
    std::filesystem::rename(folder + "/" + name, folder + "/elsewhere/" + name);
    return folder + "/elsewhere/" + name;
  };
  MountStatus const gone = MountStatus::writerGone;
  Case const cases[] = {
      {"nothing", [](auto&) {}, MountStatus::mounted, gone},
      {"a link in the table's place",
       [&](auto& folder) {
         ::symlink(move(folder, "table.table").c_str(), (folder + "/table.table").c_str());
       }},
      {"a link in the lock's place",
       [&](auto& folder) { ::symlink(move(folder, "table.lock").c_str(), (folder + "/table.lock").c_str()); },
       MountStatus::notPermitted, gone},
      {"a second name of the table",
       [](auto& folder) { ::link((folder + "/table.table").c_str(), (folder + "/other").c_str()); }},
      {"a second name of the lock",
       [](auto& folder) { ::link((folder + "/table.lock").c_str(), (folder + "/other").c_str()); },
       MountStatus::notPermitted, gone},
      {"a queue in the table's place",
       [](auto& folder) {
         ::unlink((folder + "/table.table").c_str());
         ::mkfifo((folder + "/table.table").c_str(), 0600);
         ::chown((folder + "/table.table").c_str(), TestSupport::nobody, TestSupport::nobody);
       }},
      {"a directory in the table's place",
       [](auto& folder) {
         ::unlink((folder + "/table.table").c_str());
         ::mkdir((folder + "/table.table").c_str(), 0755);
         ::chown((folder + "/table.table").c_str(), TestSupport::nobody, TestSupport::nobody);
       }},
      {"another user's table",
       [](auto& folder) {
         ::chown((folder + "/table.table").c_str(), 1, TestSupport::nobody);
         ::chmod((folder + "/table.table").c_str(), 0644);
       }},
      {"a table that others may write",
       [](auto& folder) { ::chmod((folder + "/table.table").c_str(), 0646); }},
      {"a directory that the group may write", [](auto& folder) { ::chmod(folder.c_str(), 0770); }},
      {"a directory that others may write", [](auto& folder) { ::chmod(folder.c_str(), 01757); }},
      {"a directory of another user",
       [](auto& folder) { ::chown(folder.c_str(), 1, 1), ::chmod(folder.c_str(), 0755); }},
      {"a directory that may not be entered", [](auto& folder) { ::chmod(folder.c_str(), 0); }},
  };
  for (Case const& test : cases) {
    SCOPED_TRACE(test.name);
    TestFolder const folder;
    ::chown(folder.path().c_str(), TestSupport::nobody, TestSupport::nobody);
    auto const tryAll = [&](MountStatus writer, MountStatus reader) {
      TestSupport::Child child([&](TestSupport::Child&) {
        TestSupport::becomeNobody();
        Table tables[2];
        EXPECT_EQ(tables[0].mount(folder.options(Mode::reader)), reader) << tables[0].mountDetail();
        EXPECT_EQ(tables[1].mount(folder.options(Mode::writer)), writer) << tables[1].mountDetail();
        for (Table const& table : tables) {
          EXPECT_EQ(table.mountDetail().empty(), table.mountStatus() == MountStatus::mounted);
        }
      });
      EXPECT_EQ(child.wait(), 0);
    };
    tryAll(MountStatus::mounted, MountStatus::noTable);
    test.plant(folder.path());
    tryAll(test.writer, test.reader);
  }
}

TEST(Folder, ALinkPlantedUnderTheNewFilesNameIsNotFollowed) {
  TestFolder const folder;
  std::ofstream(folder.path() + "/victim") << "precious";
  std::filesystem::create_symlink(folder.path() + "/victim", folder.path() + "/table.new");
  Table table;
  EXPECT_EQ(table.mount(folder.options(Mode::writer)), MountStatus::mounted);
  std::string text;
  std::ifstream(folder.path() + "/victim") >> text;
  EXPECT_EQ(text, "precious");
  EXPECT_FALSE(std::filesystem::exists(folder.path() + "/table.new"));
}

struct OtherRow : TestRow {};

}  // namespace

template <>
struct Brine::Codec<OtherRow> : Brine::Codec<TestRow> {
  static constexpr std::string_view rowType = "OtherRow";
};

namespace {

TEST(Folder, AReaderFollowsWhatBecomesOfTheTable) {
  TestFolder const folder;
  Table reader, writer;
  EXPECT_EQ(reader.mount(folder.options(Mode::reader)), MountStatus::noTable);
  EXPECT_THROW(reader.mount(folder.options(Mode::reader)), Brine::StateError);
  Brine::Table<OtherRow> other;
  ASSERT_EQ(other.mount(folder.options(Mode::writer)), MountStatus::mounted);
  other.unmount();
  auto const expectReader = [&](MountStatus status) {
    reader.deliver();
    EXPECT_EQ(reader.mountStatus(), status) << reader.mountDetail();
  };
  expectReader(MountStatus::incompatible);
  EXPECT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::incompatible);
  std::ofstream(folder.path() + "/table.table") << "no table";
  expectReader(MountStatus::corrupt);
  EXPECT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::corrupt);
  Brine::MountOptions options = folder.options(Mode::writer);
  options.repair = true;
  EXPECT_EQ(writer.mount(options), MountStatus::mounted);
  expectReader(MountStatus::mounted);
  writer.unmount();
  expectReader(MountStatus::writerGone);
}

}  // namespace
