#include "agent/commands/RecordOptions.h"

#include <CLI/CLI.hpp>

namespace Agent {

void RecordOptions::addTo(CLI::App& command) {
  CLI::Option* const record = command.add_option(
      "--record", recorder.file, "Write every event that is taken in behind this file, for `qorevpn replay`");
  command
      .add_option(
          "--record-size", recorder.size,
          "Size of a recording's file, such as 64MB, which then becomes FILE.1 and makes room for the next")
      ->transform(CLI::AsSizeValue(true))
      ->check(CLI::Range(std::uint64_t{1'000}, std::uint64_t{1} << 50))
      ->default_str("64MB")
      ->needs(record);
  command.add_option("--record-files", recorder.files, "How many files a recording keeps")
      ->check(CLI::Range(1U, 1000U))
      ->capture_default_str()
      ->needs(record);
}

}  // namespace Agent
