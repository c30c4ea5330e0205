#include "agent/commands/RecordOptions.h"

#include <CLI/CLI.hpp>

#include "agent/base/Ranges.h"

namespace Agent {

void RecordOptions::addTo(CLI::App& command) {
  CLI::Option* const record =
      command
          .add_option("--record", recorder.file,
                      "Append every event that is taken in to this file, for `qorevpn replay`")
          ->type_name("FILE");
  command
      .add_option(
          "--record-size", recorder.size,
          "Size of a recording's file, such as 64MB, which then becomes FILE.1 and makes room for the next")
      ->transform(CLI::AsSizeValue(true))
      ->check(numberFrom("1000", "1000000000000000"))
      ->default_str("64MB")
      ->needs(record);
  command.add_option("--record-files", recorder.files, "How many files a recording keeps")
      ->check(numberFrom("1", "1000"))
      ->capture_default_str()
      ->needs(record);
}

}  // namespace Agent
