#include "agent/feed/Feeds.h"

#include <algorithm>

namespace Agent {

Sources::About aboutFeed(Feed const& feed) {
  return {.name = feed.name(), .kind = "feed", .endpoint = feed.name(), .isRecording = feed.isRecording()};
}

Feeds::Feeds(Loop& loop, std::vector<Feed::Options> const& options, bool exitAtEnd)
    : loop_(loop), exitAtEnd_(exitAtEnd) {
  for (Feed::Options const& each : options) feeds_.push_back(std::make_unique<Feed>(loop, each));
}

void Feeds::start(std::function<Sides(Feed const&)> const& sidesOf, Logs logs) {
  logs_ = std::move(logs);
  for (auto const& feed : feeds_) {
    Sides sides = sidesOf(*feed);
    feed->start({std::move(sides.controller), std::move(sides.evpn),
                 [this, &feed = *feed](bool failed) { ended(feed, failed); }, logs_.warning});
  }
}

void Feeds::ended(Feed const& feed, bool failed) {
  logs_.info("feed ended: " + (feeds_.size() == 1 ? "" : feed.name() + ": ") + feed.tally());
  failed_ = failed_ || failed;
  bool const areAll =
      std::all_of(feeds_.begin(), feeds_.end(), [](auto const& each) { return each->hasEnded(); });
  if (failed || (areAll && exitAtEnd_)) loop_.stop();
}

bool Feeds::haveFailed() const {
  return failed_ || (exitAtEnd_ && std::any_of(feeds_.begin(), feeds_.end(),
                                               [](auto const& each) { return each->errors() != 0; }));
}

std::string Feeds::names() const {
  std::string names;
  for (auto const& feed : feeds_) names.append(names.empty() ? "" : ", ").append(feed->name());
  return names;
}

nlohmann::ordered_json Feeds::state() const {
  std::uint64_t events = 0, errors = 0;
  bool ended = true;
  for (auto const& feed : feeds_) {
    events += feed->events();
    errors += feed->errors();
    ended = ended && feed->hasEnded();
  }
  return {{"name", names()}, {"events", events}, {"badLines", errors}, {"ended", ended}};
}

}  // namespace Agent
