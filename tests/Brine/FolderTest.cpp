#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "Brine/Copy.h"
#include "support/Child.h"

namespace {

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
  using Iterator = std::filesystem::directory_iterator;
  EXPECT_EQ(std::distance(Iterator(folder.path()), Iterator()), 2 * std::ssize(names));
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

TEST(Folder, WhatSomebodyElseCouldHavePutThereIsRefusedOrLeftAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  using enum MountStatus;
  struct Case {
    char const* name;
    char const* command;
    MountStatus writer = notPermitted, reader = notPermitted;
  };
  Case const cases[] = {
      {"nothing", "true", mounted, writerGone},
      {"a link in the table's place", "mv table.table x && ln -s x table.table"},
      {"a link in the lock's place", "mv table.lock x && ln -s x table.lock", notPermitted, writerGone},
      {"a link in the new file's place", "rm table.table && ln -s precious table.new", mounted, noTable},
      {"a second name of the table", "ln table.table x"},
      {"a second name of the lock", "ln table.lock x", notPermitted, writerGone},
      {"a queue in the table's place", "rm table.table && mkfifo -m 600 table.table && chown 65534 *"},
      {"a directory in the table's place", "rm table.table && mkdir table.table && chown 65534 *"},
      {"another user's table", "chown 1 table.table && chmod 644 table.table"},
      {"a table that others may write", "chmod 646 table.table"},
      {"a directory that the group may write", "chmod 770 ."},
      {"a directory that others may write", "chmod 1757 ."},
      {"a directory of another user", "chown 1 . && chmod 755 ."},
      {"a directory that may not be entered", "chmod 0 ."},
  };
  for (Case const& test : cases) {
    SCOPED_TRACE(test.name);
    TestFolder const folder;
    std::ofstream(folder.path() + "/precious") << "untouched";
    ASSERT_EQ(std::system(("chown 65534:65534 " + folder.path() + " " + folder.path() + "/*").c_str()), 0);
    auto const tryAll = [&](MountStatus writer, MountStatus reader) {
      TestSupport::Child child([&](TestSupport::Child&) {
        TestSupport::becomeNobody();
        Table tables[2];
        EXPECT_EQ(tables[0].mount(folder.options(Mode::reader)), reader) << tables[0].mountDetail();
        EXPECT_EQ(tables[1].mount(folder.options(Mode::writer)), writer) << tables[1].mountDetail();
        for (Table const& table : tables)
          EXPECT_EQ(table.mountDetail().empty(), table.mountStatus() == mounted);
      });
      EXPECT_EQ(child.wait(), 0);
    };
    tryAll(mounted, noTable);
    ASSERT_EQ(std::system(("cd " + folder.path() + " && " + test.command).c_str()), 0);
    tryAll(test.writer, test.reader);
    std::string text;
    std::ifstream(folder.path() + "/precious") >> text;
    EXPECT_EQ(text, "untouched");
  }
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
  auto const expect = [&](MountStatus ofReader, MountStatus ofWriter, bool repair) {
    reader.deliver();
    EXPECT_EQ(reader.mountStatus(), ofReader) << reader.mountDetail();
    EXPECT_EQ(writer.mount(folder.options(Mode::writer, "table", repair)), ofWriter) << writer.mountDetail();
  };
  EXPECT_EQ(Brine::Table<OtherRow>().mount(folder.options(Mode::writer)), MountStatus::mounted);
  expect(MountStatus::incompatible, MountStatus::incompatible, false);
  std::ofstream(folder.path() + "/table.table") << "no table";
  expect(MountStatus::corrupt, MountStatus::corrupt, false);
  expect(MountStatus::corrupt, MountStatus::mounted, true);
  reader.deliver();
  EXPECT_EQ(reader.mountStatus(), MountStatus::mounted);
  writer.unmount();
  expect(MountStatus::writerGone, MountStatus::mounted, false);
  reader.unmount();
  std::string const file = folder.path() + "/table.table";
  ::chmod(file.c_str(), 0660);
  EXPECT_EQ(reader.mount(folder.options(Mode::reader)), MountStatus::notPermitted);
  reader.deliver();
  ::chmod(file.c_str(), 0640);
  pollfd poll{reader.fd(), POLLIN, 0};
  EXPECT_EQ(::poll(&poll, 1, 0), 1);
  reader.deliver();
  EXPECT_EQ(reader.mountStatus(), MountStatus::mounted);
}

TEST(Folder, AReaderFindsItsTableWhereADirectoryIsMadeMovedOrRemovedOrALinkToItIsTurned) {
  TestFolder const folder;
  auto const optionsAt = [&](std::string const& site, Mode mode) {
    Brine::MountOptions options = folder.options(mode);
    options.directory += "/" + site + "/tables";
    return options;
  };
  std::map<uint64_t, Table> writers;
  auto const write = [&](std::string const& site, uint64_t value) {
    std::filesystem::create_directory(folder.path() + "/" + site);
    EXPECT_EQ(writers[value].mount(optionsAt(site, Mode::writer)), MountStatus::mounted);
    writers[value].write({{1, 1}, value, 0});
    writers[value].endTurn();
  };
  auto const turn = [&](std::string const& site) {
    std::filesystem::create_directory_symlink(site, folder.path() + "/new");
    std::filesystem::rename(folder.path() + "/new", folder.path() + "/site");
  };
  Table reader;
  auto const expectRow = [&](uint64_t value) {
    std::optional<TestRow> row;
    for (int wake = 0; wake < 10 && (!row || row->value != value); ++wake) {
      pollfd poll{reader.fd(), POLLIN, 0};
      ASSERT_EQ(::poll(&poll, 1, TestSupport::patienceMs), 1);
      reader.deliver();
      row = reader.find({1, 1});
    }
    EXPECT_TRUE(row && row->value == value);
  };
  turn("one");
  EXPECT_EQ(reader.mount(optionsAt("site", Mode::keyshadow)), MountStatus::noTable);
  write("one", 0);
  expectRow(0);
  write("two", 1);
  turn("two");
  expectRow(1);
  std::filesystem::rename(folder.path() + "/two", folder.path() + "/two.bak");
  write("two", 2);
  expectRow(2);
  std::filesystem::remove_all(folder.path() + "/two");
  reader.deliver();
  EXPECT_TRUE(reader.find({1, 1})) << "what is gone can be read";
  write("two", 3);
  expectRow(3);
}

TEST(Folder, NoTableTakesTheDescriptorThatItsProcessPrintsTo) {
  TestFolder const folder;
  TestSupport::Child child([&](TestSupport::Child&) {
    for (int fd = 0; fd < 3; ++fd) ::close(fd);
    Table writer, reader;
    EXPECT_EQ(writer.mount(folder.options(Mode::writer)), MountStatus::mounted);
    EXPECT_EQ(reader.mount(folder.options(Mode::reader)), MountStatus::mounted);
    for (int fd = 0; fd < 3; ++fd) EXPECT_LT(::fcntl(fd, F_GETFD), 0);
  });
  EXPECT_EQ(child.wait(), 0);
}

}  // namespace
