#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace Agent {

/// An option that this build refuses, for it was configured without adapters.
inline void addRefused(CLI::App& command, std::string const& option) {
  command
      .add_option_function<std::string>(option,
                                        [option](std::string const&) {
                                          throw CLI::ValidationError(
                                              option,
                                              "this build has no adapters to switches and BGP "
                                              "speakers (QOREVPN_ADAPTERS=OFF)");
                                        })
      ->group("")
      ->trigger_on_parse();
}

}  // namespace Agent
