#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "AgentSite.h"

namespace {

using testing::AllOf, testing::ContainsRegex, testing::HasSubstr, testing::StartsWith;
using TestSupport::Program, TestSupport::run;

std::string textOf(std::string const& path) {
  std::string text;
  for (std::string const& line : linesOf(path)) text += line;
  return text;
}

TEST(ProgramTest, SaysWhatItIsAndWhatItCanDo) {
  EXPECT_THAT(run({"--version"}).out, ContainsRegex("^qorevpn [0-9]+\\.[0-9]+\\.[0-9]+\n$"));
  EXPECT_THAT(run({"help"}).out, AllOf(HasSubstr("watch"), HasSubstr("Exit status")));
  EXPECT_EQ(run({"help", "watch"}).out, run({"watch", "--help"}).out);
  auto const unknown = run({"help", "wtach"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_THAT(unknown.err, HasSubstr("no command 'wtach'"));
  EXPECT_EQ(run({"metrics", "--dir", "/none"}).status, 1);
}

TEST(LogTest, HasTimesAndLevelsAndGoesOnInANewFileAfterSighup) {
  AgentSite site;
  std::string const log = site.folder.path() + "/log";
  Program agent({"agent", "--dir", site.dir, "--feed", "-", "--log", log});
  ASSERT_TRUE(site.isHosted());
  std::filesystem::rename(log, log + ".1");
  agent.signal(SIGHUP);
  ASSERT_TRUE(becomes([&] { return std::filesystem::exists(log); }));
  agent.write("nonsense\n");
  std::string const time = "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z ";
  ASSERT_TRUE(becomes([&] { return std::filesystem::file_size(log) != 0; }));
  EXPECT_THAT(textOf(log + ".1"), ContainsRegex(time + "info    agent " + site.dir + ": started"));
  EXPECT_THAT(textOf(log), ContainsRegex(time + "warning agent .*:1: not JSON"));
  std::filesystem::remove_all(site.dir);
  EXPECT_TRUE(
      becomes([&] { return textOf(log).find(site.dir + " was removed: nobody sees") != std::string::npos; }));
  EXPECT_EQ(agent.errors(), "");
}

TEST(LogTest, LeavesTimesToTheJournal) {
  std::string const command =
      "JOURNAL_STREAM=$(stat -L -c %d:%i /dev/stderr) exec \"$0\" agent --dir \"$1\" --feed - --exit-at-end";
  AgentSite site;
  std::string const log = site.folder.path() + "/journal";
  std::string const line =
      "sh -c '" + command + "' " + TestSupport::programPath() + " " + site.dir + " </dev/null 2>" + log;
  ASSERT_EQ(std::system(line.c_str()), 0);
  EXPECT_THAT(textOf(log), StartsWith("<6>agent " + site.dir + ": started"));
}

}  // namespace
