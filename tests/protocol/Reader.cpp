#include "protocol/Reader.h"

#include <algorithm>
#include <exception>
#include <random>
#include <set>
#include <vector>

namespace Protocol {

Reader::Reader(World const& world) : world_(world) {
  memory.beginReader(0);
  table_.onChanged = [this](TestKey const& key) { onChanged(key); };
  table_.onQuiesced = [this](bool quiesced) { quiesced_ = quiesced; };
  table_.onCorruption = [this](std::string const& message) { fail("damage is reported: " + message); };
  if (table_.mountImage(world.image()) != MountStatus::mounted) fail(table_.mountDetail());
}

void Reader::run(std::string_view script) {
  size_t const calm = script.find('~') + 1;
  auto const choose = memory.choose;
  if (calm != 0) memory.choose = chooseOldest;
  for (size_t i = 0; i < script.size(); ++i) {
    if (i == calm) memory.choose = choose;
    switch (char const step = script[i]) {
      case '*': walk(std::nullopt); break;
      case '1': walk(1); break;
      case '2': walk(2); break;
      case '>': deliver(); break;
      case '^': memory.viewIs(world_.turns()[++turn_].end); break;
      case '~': break;
      default: find(World::key(step));
    }
  }
  memory.choose = choose;
  finish();
}

void Reader::fail(std::string const& what) {
  if (fault_.empty()) fault_ = what;
}

template <class Act>
void Reader::act(std::string const& what, Act&& act) {
  began_ = memory.view();
  memory.tell(what + ", view " + std::to_string(began_));
  try {
    act();
  } catch (std::exception const& error) {
    fail(what + " raises: " + error.what());
  }
}

/// The key's row, or its absence, was shown. False if it cannot be: it was not so at any time from the
/// beginning of the operation on, or only before the reader was shown something newer of the key.
bool Reader::see(TestKey const& key, std::optional<TestRow> const& row, bool isTold) {
  auto const time = world_.timeOf(key, row, std::max(began_, seen_[key]));
  if (time) seen_[key] = *time;
  // Its owner keeps what it was told, by a walk too.
  if (!isTold) return time.has_value();
  if (row) {
    copy_[key] = *row;
  } else {
    copy_.erase(key);
  }
  return time.has_value();
}

void Reader::find(TestKey const& key) {
  act("look-up", [&] {
    auto const row = table_.find(key);
    if (!see(key, row, false)) fail(row ? "a look-up gives a wrong row" : "a look-up misses a row");
  });
}

void Reader::walk(std::optional<uint32_t> column) {
  act("walk", [&] {
    std::set<TestKey> met;
    auto cursor = column ? table_.walk(*column) : table_.walk();
    while (TestRow const* const row = cursor.next()) {
      if (column && row->key.group != *column) fail("a walk shows a row of another column");
      // One that goes and comes back may be met twice.
      if (!met.insert(row->key).second && !world_.timeOf(row->key, std::nullopt, began_))
        fail("a walk shows a row twice");
      if (!see(row->key, *row, false)) fail("a walk shows a wrong row");
    }
    for (TestKey const& key : world_.keys()) {
      bool const isMissed = !met.contains(key) && (!column || key.group == *column);
      // It says nothing about when the row was not there.
      if (isMissed && !world_.timeOf(key, std::nullopt, std::max(began_, seen_[key])))
        fail("a walk misses a row");
    }
  });
}

void Reader::onChanged(TestKey const& key) {
  auto const row = table_.find(key);
  if (quiesced_) fail("told of a change while the writer counts as quiet");
  if (!see(key, row, true)) fail("told of a row that is not there");
}

void Reader::deliver() {
  act("delivery", [&] {
    auto published = world_.turns().begin();
    auto const end = world_.turns().end();
    while (published + 1 != end && published[1].end <= began_) ++published;
    table_.deliver();
    for (TestKey const& key : world_.keys()) {
      auto const found = copy_.find(key);
      auto const row = found == copy_.end() ? std::nullopt : std::optional(found->second);
      if (!world_.timeOf(key, row, published->end)) fail("a change is not told");
    }
    if (quiesced_ && std::none_of(published, end, [this](auto const& turn) { return turn.rows == copy_; }))
      fail("the writer counts as quiet, but not all was told");
  });
}

void Reader::finish() {
  memory.viewIs(memory.now());
  deliver();
  if (quiesced_ != world_.endsQuiet()) fail("the writer counts as quiet and is not, or the contrary");
  if (quiesced_ && copy_ != world_.turns().back().rows) fail("in the end not all was told");
}

namespace {

std::string runReader(World const& world, std::string_view script) {
  Reader reader(world);
  reader.run(script);
  return reader.fault();
}

}  // namespace

Outcome explore(World const& world, std::string_view script, size_t limit, std::optional<uint64_t> seed) {
  struct Choice {
    unsigned taken;
    unsigned count;
  };
  std::vector<Choice> choices;
  size_t depth = 0;
  std::mt19937_64 random(seed.value_or(0));
  // The ends are where the faults are.
  auto const draw = [&](unsigned count) {
    uint64_t const kind = random() % 4;
    return kind == 0 ? 0 : kind == 1 ? count - 1 : static_cast<unsigned>(random() % count);
  };
  memory.choose = [&](unsigned count) {
    if (depth == choices.size()) choices.push_back({seed ? draw(count) : 0, count});
    return choices[depth++].taken;
  };
  Outcome outcome;
  while (!outcome.isComplete && outcome.executions < limit && outcome.fault.empty()) {
    depth = 0;
    outcome.fault = runReader(world, script);
    ++outcome.executions;
    if (!outcome.fault.empty()) {
      depth = 0;
      std::vector<std::string> told;
      memory.told = &told;
      runReader(world, script);
      memory.told = nullptr;
      for (std::string const& line : told) outcome.fault += "\n  " + line;
    } else if (seed) {
      choices.clear();
    } else {
      while (!choices.empty() && choices.back().taken + 1 == choices.back().count) choices.pop_back();
      outcome.isComplete = choices.empty();
      if (!choices.empty()) ++choices.back().taken;
    }
  }
  return outcome;
}

}  // namespace Protocol
