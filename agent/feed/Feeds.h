/// Agent::Feeds: all feeds of one command. Each is a source of its own.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "agent/feed/Feed.h"
#include "agent/feed/Sources.h"

namespace Agent {

/// The description of a feed for Sources::add().
Sources::About aboutFeed(Feed const& feed);

class Feeds {
 public:
  /// The listeners of a feed, one for each side.
  struct Sides {
    SourceHandlers controller, evpn;
  };

  /// Opens all of them. `exitAtEnd`: the loop stops when the last one has ended. Raises std::system_error.
  Feeds(Loop& loop, std::vector<Feed::Options> const& options, bool exitAtEnd);

  /// Begins to read all of them; `sidesOf` gives the listeners of each.
  void start(std::function<Sides(Feed const&)> const& sidesOf, Logs logs);

  /// Whether a feed failed or had a bad line.
  bool haveFailed() const;
  /// "a.jsonl, standard input".
  std::string names() const;
  /// {"name": "a.jsonl, standard input", "events": 592, "badLines": 1, "ended": true}, of all together.
  nlohmann::ordered_json state() const;

 private:
  void ended(Feed const& feed, bool failed);

  Loop& loop_;
  bool exitAtEnd_;
  std::vector<std::unique_ptr<Feed>> feeds_;
  Logs logs_;
  bool failed_ = false;
};

}  // namespace Agent
