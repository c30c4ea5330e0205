/// Options of the command line whose values are numbers with limits.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace Agent {

/// A validator that refuses a text that is not a number from `min` to `max`. Its message has the limits as
/// they are written here.
inline CLI::Validator numberFrom(std::string const& min, std::string const& max) {
  return CLI::Validator(
      [=](std::string& text) {
        double value = 0;
        bool const fits =
            CLI::detail::lexical_cast(text, value) && value >= std::stod(min) && value <= std::stod(max);
        return fits ? std::string() : "'" + text + "' is not a number from " + min + " to " + max;
      },
      "from " + min + " to " + max);
}

}  // namespace Agent
