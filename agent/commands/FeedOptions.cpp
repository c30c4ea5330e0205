#include "agent/commands/FeedOptions.h"

#include <cmath>

namespace Agent {

CLI::Option* FeedOptions::addTo(CLI::App& command) {
  CLI::Option* const feed =
      command.add_option("--feed", file, "Events to play, one JSON object a line; - is standard input");
  CLI::Option* const paced =
      command
          .add_option_function<double>(
              "--pace",
              [this](double factor) {
                if (std::isnan(factor)) throw CLI::ValidationError("--pace", "not a number");
                isPaced = true;
                pace = factor;
              },
              "Wait as the timestamps say, this many times as fast as recorded (1 if not given)")
          ->expected(0, 1)
          ->default_str("1")
          ->check(CLI::Range(0.001, 1e6));
  paced->needs(feed);
  command.add_flag("--strict", strict, "Stop with status 1 at a bad line, instead of skipping it")
      ->needs(feed);
  command.add_flag("--exit-at-end", exitAtEnd, "Stop at the end of the feed")->needs(feed);
  return feed;
}

}  // namespace Agent
