#include "protocol/World.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>

namespace Protocol {
namespace {

void* map(size_t size, int protection, int fd, off_t offset) {
  void* const address = Brine::realSystem().map(size, protection, fd, offset);
  memory.mapped(address, size, static_cast<uint64_t>(offset));
  return address;
}

int unmap(void* address, size_t size) {
  memory.unmapped(address);
  return Brine::realSystem().unmap(address, size);
}

ssize_t writeAt(int fd, void const* data, size_t size, off_t offset) {
  uint64_t value = 0;
  std::memcpy(&value, data, sizeof value);
  memory.storeAt(static_cast<uint64_t>(offset), value);
  return Brine::realSystem().writeAt(fd, data, size, offset);
}

std::vector<uint8_t> bytesOf(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

World::World(unsigned fillers, std::string_view before, std::string_view during) {
  memory.forget();
  Brine::sys.map = map;
  Brine::sys.unmap = unmap;
  Brine::sys.writeAt = writeAt;
  if (table_.mount(folder_.options(Mode::writer)) != MountStatus::mounted) fault_ = table_.mountDetail();
  for (unsigned number = 0; number < fillers; ++number) write({1000 + number, 3});
  run(before);
  moments_ = {{0, model_}};
  turns_ = {{0, model_}};
  memory.record(bytesOf(folder_.path() + "/table.table"));
  run(during);
  if (!memory.stopRecording(bytesOf(folder_.path() + "/table.table")))
    fault_ = "something was stored that Word.h knows nothing of";
  Brine::sys = Brine::realSystem();
  imageBytes_ = table_.statistics().fileBytes;
  image_ = ::mmap(nullptr, imageBytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  memory.readAt(image_, imageBytes_);
  lookAtEachTime();
}

World::~World() {
  ::munmap(image_, imageBytes_);
  memory.forget();
}

TestKey World::key(char letter) {
  static auto const numbers = [] {
    std::vector<uint64_t> found;
    for (uint64_t number = 0; found.size() < 26; ++number) {
      uint64_t const words[] = {number, 0};
      if (Brine::Codec<TestRow>::hash(words) < 1U << 30) found.push_back(number);
    }
    return found;
  }();
  auto const place = static_cast<size_t>(letter - 'a');
  return {numbers[place], static_cast<uint32_t>(1 + place % 2)};
}

void World::write(TestKey const& key) {
  TestRow const row{key, ++lastValue_, ~lastValue_};
  keys_.insert(key);
  table_.write(row);
  endsQuiet_ = false;
  model_[key] = row;
}

void World::run(std::string_view program) {
  for (char const step : program) {
    bool const endsTurn = step == '.' || step == '!';
    endsQuiet_ |= endsTurn;
    if (step == '.') {
      table_.endTurn();
    } else if (step == '!') {
      table_.recover();
    } else if (step >= 'a') {
      write(key(step));
    } else {
      TestKey const erased = key(static_cast<char>(step - 'A' + 'a'));
      if (table_.erase(erased)) endsQuiet_ = false;
      model_.erase(erased);
    }
    moments_.push_back({memory.now(), model_});
    if (endsTurn) turns_.push_back({memory.now(), model_});
  }
}

/// What a reader that always sees the last store sees after each of them: the rows of before an operation, up
/// to one store of it, and those of after it from then on.
void World::lookAtEachTime() {
  auto const fail = [this](Time time, std::string const& what) {
    fault_ = what + " at " + std::to_string(time);
  };
  memory.choose = chooseOldest;
  Model const* last = &moments_.front().rows;
  size_t next = 0;
  for (Time time = 0; time <= memory.now(); ++time) {
    while (moments_[next].time < time) ++next;
    memory.beginReader(time);
    Table table;
    table.mountImage(image());
    Model seen;
    try {
      for (TestRow const& row : table.sorted()) seen[row.key] = row;
      for (TestKey const& key : keys_) {
        if (table.find(key).has_value() != seen.contains(key)) fail(time, "look-ups and walks differ");
      }
    } catch (std::exception const& error) {
      fail(time, error.what());
    }
    Model const& after = moments_[next].rows;
    if (seen == after) last = &after;
    if (seen != *last) fail(time, "an operation is not atomic");
    if (time == moments_[next].time && seen != after) fail(time, "an operation has not come into effect");
    for (TestKey const& key : keys_) {
      auto const found = seen.find(key);
      auto const row = found == seen.end() ? std::nullopt : std::optional(found->second);
      auto& versions = versions_[key];
      if (versions.empty() || versions.back().row != row) versions.push_back({time, row});
    }
  }
}

std::optional<Time> World::timeOf(TestKey const& key, std::optional<TestRow> const& row, Time from) const {
  auto const found = versions_.find(key);
  if (found == versions_.end()) return row ? std::nullopt : std::optional(from);
  auto const& versions = found->second;
  for (auto version = versions.begin(); version != versions.end(); ++version) {
    bool const isOver = version + 1 != versions.end() && version[1].since <= from;
    if (!isOver && version->row == row) return std::max(version->since, from);
  }
  return std::nullopt;
}

}  // namespace Protocol
