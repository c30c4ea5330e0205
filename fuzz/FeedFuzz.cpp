// Any bytes are a feed, which arrives in pieces of any size: the first byte says how large. Lines must not
// depend on the pieces, and each is an event or an error that says why not.

#include <cmath>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <vector>

#include "agent/feed/Event.h"
#include "agent/feed/Feed.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

std::vector<std::string> linesOf(std::string_view feed, size_t pieceSize) {
  Agent::LineCutter cutter;
  std::vector<std::string> lines;
  auto const take = [&] {
    while (auto const line = cutter.next()) {
      require(line->number == lines.size() + 1);
      lines.emplace_back(line->text);
    }
  };
  for (; !feed.empty(); feed.remove_prefix(std::min(pieceSize, feed.size()))) {
    cutter.append(feed.substr(0, pieceSize));
    take();
  }
  cutter.end();
  take();
  return lines;
}

std::optional<Agent::Event> eventOf(std::string const& line) {
  try {
    return Agent::parseEvent(line);
  } catch (Agent::EventError const& error) {
    require(error.what()[0] != '\0');
    return std::nullopt;
  }
}

/// The same JSON, but none of the plain lines that are read in a shorter way.
std::string notPlain(std::string line) {
  size_t const found = line.find("\"from\"");
  return found == std::string::npos ? line : line.replace(found + 1, 1, "\\u0066");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size == 0) return 0;
  std::string const feed(data + 1, data + size);
  auto const lines = linesOf(feed, feed.size() + 1);
  require(linesOf(feed, data[0] + size_t{1}) == lines);
  for (std::string const& line : lines) {
    require(line.find('\n') == std::string::npos);
    auto const event = eventOf(line);
    require(event == eventOf(notPlain(line)));
    if (!event) continue;
    require(!event->time || (std::isfinite(*event->time) && *event->time >= 0));
    require(event->vteps.empty() || event->op == Agent::Op::multipath ||
            event->op == Agent::Op::multipathDel);
  }
  return 0;
}
