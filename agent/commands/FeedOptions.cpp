#include "agent/commands/FeedOptions.h"

#include "agent/base/Ranges.h"

namespace Agent {

CLI::Option* FeedOptions::addTo(CLI::App& command) {
  CLI::Option* const feed =
      command
          .add_option(
              "--feed", files,
              "Events to play, one JSON object a line: a file, a FIFO, or - for standard input; may be "
              "repeated")
          ->allow_extra_args(false);
  CLI::Option* const paced =
      command
          .add_option_function<double>(
              "--pace",
              [this](double factor) {
                isPaced = true;
                pace = factor;
              },
              "Wait as the timestamps say, this many times as fast as recorded (1 if not given)")
          ->expected(0, 1)
          ->default_str("1")
          ->check(numberFrom("0.001", "1000000"));
  paced->needs(feed);
  command.add_flag("--strict", strict, "Stop with status 1 at a bad line, instead of skipping it")
      ->needs(feed);
  command
      .add_flag("--exit-at-end", exitAtEnd, "Stop when every feed has ended, with status 1 if lines were bad")
      ->needs(feed);
  command
      .add_option("--hold", holdSeconds,
                  "Seconds for which what a lost source told is kept; 0 keeps it until the source is back")
      ->check(numberFrom("0", "31536000"))
      ->capture_default_str();
  return feed;
}

std::vector<Feed::Options> FeedOptions::feeds() const {
  std::vector<Feed::Options> options;
  for (std::string const& file : files) {
    options.push_back({.file = file, .strict = strict, .pace = isPaced ? pace : 0, .reopens = !exitAtEnd});
  }
  return options;
}

}  // namespace Agent
