/// The options of the commands that have sources: feeds, their speed, and how long a lost source's entries
/// stay.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <string>
#include <vector>

#include "agent/feed/Feed.h"

namespace Agent {

struct FeedOptions {
  std::vector<std::string> files;
  bool isPaced = false;
  double pace = 1;
  bool strict = false;
  bool exitAtEnd = false;
  unsigned holdSeconds = 300;

  /// Adds the options. Returns the option --feed, so that the command can make it required.
  CLI::Option* addTo(CLI::App& command);
  std::vector<Feed::Options> feeds() const;
  std::chrono::seconds hold() const { return std::chrono::seconds(holdSeconds); }
};

}  // namespace Agent
