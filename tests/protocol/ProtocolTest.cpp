// Readers beside a writer, in every way that the language allows.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <sstream>

#include "protocol/Reader.h"
#include "support/Scale.h"

namespace Protocol {
namespace {

struct Scenario {
  unsigned fillers;
  std::string before;
  std::string during;
  std::vector<std::string> scripts;
};

/// What two keys in few steps do not come to, from the file beside this.
std::vector<Scenario> const scenarios = [] {
  std::vector<Scenario> all;
  std::ifstream file(QOREVPN_SOURCE_DIR "/tests/protocol/ProtocolTest.scenarios");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('#')) continue;
    std::istringstream words(line);
    words >> all.emplace_back().fillers >> all.back().before >> all.back().during;
    all.back().scripts.assign(std::istream_iterator<std::string>(words), {});
  }
  return all;
}();

struct Place {
  std::string file;
  int line;
  std::string text;
};

/// Every line of the engine that gives an access an order.
std::vector<Place> orderedPlaces() {
  std::vector<Place> places;
  for (auto const& entry :
       std::filesystem::recursive_directory_iterator(QOREVPN_SOURCE_DIR "/platform/Brine")) {
    std::string const file = entry.path().filename();
    if (!entry.is_regular_file() || file == "Word.h") continue;
    std::ifstream in(entry.path());
    std::string text;
    for (int line = 1; std::getline(in, text); ++line) {
      size_t const comment = text.find("//");
      size_t const access = std::min(text.find("loadAcquire("), text.find("storeRelease("));
      if (access < comment && access != std::string::npos) places.push_back({file, line, text});
    }
  }
  return places;
}

/// Orderings that may be taken away alone are in the file beside this: a file of the engine, a piece of the
/// line or nothing for the whole file, and why.
bool isExcused(Place const& place) {
  std::ifstream excuses(QOREVPN_SOURCE_DIR "/tests/protocol/ProtocolTest.excuses");
  auto const next = [&](std::string& text, char end) { return bool(std::getline(excuses, text, end)); };
  for (std::string file, piece, why; next(file, '|') && next(piece, '|') && next(why, '\n');)
    if (place.file == file && place.text.find(piece) != std::string::npos) return true;
  return false;
}

class Exploration : public testing::Test {
 protected:
  ~Exploration() override { std::cout << executions_ << " executions\n"; }

  /// The world's own course is right, and so is every execution of the scripts beside it; with a `seed`, many
  /// of them.
  void expectRight(Scenario const& scenario, std::optional<uint64_t> seed = std::nullopt) {
    World const world(scenario.fillers, scenario.before, scenario.during);
    ASSERT_EQ(world.fault(), "") << scenario.during;
    for (std::string const& script : scenario.scripts) {
      Outcome const outcome = explore(world, script, seed ? 300 : SIZE_MAX, seed);
      ASSERT_EQ(outcome.fault, "") << nameOf(scenario, script);
      executions_ += outcome.executions;
    }
  }
  static std::string nameOf(Scenario const& scenario, std::string const& script) {
    return "fillers " + std::to_string(scenario.fillers) + ", before " + scenario.before + ", during " +
           scenario.during + ", " + script;
  }

  size_t executions_ = 0;
};

TEST_F(Exploration, ScenariosAreRight) {
  for (Scenario const& scenario : scenarios) ASSERT_NO_FATAL_FAILURE(expectRight(scenario));
}

TEST_F(Exploration, EachOrderingIsNeededOrExcused) {
  std::vector<Place> const ordered = orderedPlaces();
  std::map<Access, Place> places;
  for (Place const& place : ordered) places[{place.file, place.line}] = place;
  std::set<Access> noticed;
  for (Scenario const& scenario : scenarios) {
    std::set<Access> stores;
    memory.ordered = &stores;
    World const world(scenario.fillers, scenario.before, scenario.during);
    for (std::string const& script : scenario.scripts) {
      std::set<Access> accesses = stores;
      memory.ordered = &accesses;
      explore(world, script, 1000);
      memory.ordered = nullptr;
      for (Access const& access : accesses) {
        auto const place = places.find(access);
        ASSERT_NE(place, places.end()) << access.file() << ":" << access.line << " is not known";
        if (noticed.contains(access)) continue;
        memory.weakened = access;
        size_t const limit = isExcused(place->second) ? 1000 : 200000;
        Outcome const outcome = explore(world, script, limit);
        memory.weakened = {};
        executions_ += outcome.executions;
        if (!outcome.fault.empty()) noticed.insert(access);
      }
    }
  }
  std::cout << noticed.size() << " orderings needed, " << places.size() - noticed.size() << " excused\n";
  for (auto const& [access, place] : places) {
    EXPECT_NE(noticed.contains(access), isExcused(place))
        << place.file << ":" << place.line << " " << place.text
        << (isExcused(place) ? " is excused, but needed" : " may be weaker, and nothing notices");
  }
}

/// A writer of two keys, and readers of them.
class SmallWorld : public Exploration, public testing::WithParamInterface<char const*> {
 protected:
  /// Writers that go on from `during` by up to so many steps.
  void extend(std::string const& during, size_t steps) {
    if (steps == 0) return;
    for (char const step : std::string_view("ab.A")) {
      bool const isIdle = step == '.' && (during.empty() || during.back() == '.');
      if (isIdle) continue;
      scenario_.during = during + step;
      expectRight(scenario_);
      if (HasFailure()) return;
      extend(during + step, steps - 1);
    }
  }

  Scenario scenario_{0, GetParam(), "", {}};
};

TEST_P(SmallWorld, IsRightWhateverTheyDo) {
  std::string const acts = "ab*1>";
  for (char const first : acts) {
    for (char const second : acts) scenario_.scripts.push_back({first, second});
  }
  extend("", 2);
  scenario_.scripts.clear();
  for (char const act : acts) {
    for (std::string const front : {"", ">~"}) scenario_.scripts.push_back(front + act);
  }
  extend("", 3);
}

/// Longer courses than can be gone through. QOREVPN_TEST_SEED names another first seed.
TEST_F(Exploration, DrawnOnesAreRight) {
  char const* const first = std::getenv("QOREVPN_TEST_SEED");
  uint64_t const begin = first == nullptr ? 1 : std::strtoull(first, nullptr, 10);
  for (uint64_t seed = begin; seed < begin + TestSupport::scaled(100) && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    auto const draw = [&random](std::string_view steps, uint64_t most) {
      std::string drawn;
      for (uint64_t count = 1 + random() % most; count != 0; --count) drawn += steps[random() % steps.size()];
      return drawn;
    };
    Scenario scenario{random() % 2 == 0 ? 0U : 13U, draw("abcdefghijklmnAB.", 16) + ".", {}, {}};
    scenario.during = draw(random() % 2 == 0 ? "aabcABC." : "abcdefghijklmnABCDEFG...!", 24) + ".";
    for (int i = 0; i < 4; ++i) {
      scenario.scripts.push_back((random() % 2 == 0 ? ">~" : "") + draw("abcdefgh*12>>>", 6));
      if (random() % 2 == 0) scenario.scripts.back() += "^>";
    }
    expectRight(scenario, seed);
  }
}

INSTANTIATE_TEST_SUITE_P(Protocol, SmallWorld, testing::Values("", "a.", "ba."));

}  // namespace
}  // namespace Protocol
