/// The options of the commands that play a feed.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "agent/feed/Feed.h"

namespace Agent {

struct FeedOptions {
  std::string file;
  bool isPaced = false;
  double pace = 1;
  bool strict = false;
  bool exitAtEnd = false;

  /// The option --feed itself is returned, for what the command demands of it.
  CLI::Option* addTo(CLI::App& command);
  Feed::Options feed() const { return {.file = file, .strict = strict, .pace = isPaced ? pace : 0}; }
};

}  // namespace Agent
