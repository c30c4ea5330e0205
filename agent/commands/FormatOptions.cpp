#include "agent/commands/FormatOptions.h"

#include <CLI/CLI.hpp>

#include "Orb/Text.h"
#include "agent/base/MacNotation.h"

namespace Agent {

namespace {

/// An option that takes items, as several arguments or separated by commas, and adds the result of `parse`
/// for each to `target`. An error of `parse` is an error of the command line; `wanted` describes a valid
/// item.
template <class T, class Parse>
void addFilter(CLI::App& command, std::string const& name, std::vector<T>& target, std::string const& type,
               std::string const& wanted, std::string const& help, Parse parse) {
  auto const take = [=, &target](std::vector<std::string> const& texts) {
    for (std::string const& text : texts) {
      try {
        target.push_back(parse(text));
      } catch (Orb::Error const&) {
        throw CLI::ValidationError(name, "'" + text + "' is not " + wanted);
      }
    }
  };
  command.add_option_function<std::vector<std::string>>(name, take, help)
      ->type_name(type + ",...")
      ->delimiter(',')
      ->allow_extra_args(false);
}

}  // namespace

void addViewOptions(CLI::App& command, ViewOptions& options) {
  command.add_option("--dir", options.dir, "The site's directory")->capture_default_str();
  command.add_flag("-j,--json", options.json, "For programs");
}

void addRowOptions(CLI::App& command, ViewOptions& options) {
  command.add_flag("--learned", options.learned,
                   "The tables that the EVPN side writes, instead of those that the agent exports");
  command.add_flag("--text", options.text, "The values' own text")->excludes("--json");
  addFilter(command, "--vni", options.filter.vnis, "VNI",
            "a VNI, a number from 0 to 16777215 (of several: 5000,5001)", "Only rows of these VNIs",
            [](std::string const& text) { return Orb::parseWhole<Vxlan::Vni>(text); });
  addFilter(command, "--mac", options.filter.macs, "ADDRESS",
            "a MAC address such as 02:00:00:00:00:01 or 0200.0000.0001", "Only rows of these MAC addresses",
            macFromPeople);
  addFilter(command, "--vtep", options.filter.vteps, "PREFIX",
            "an IPv4 address or prefix such as 10.99.0.11 or 10.99.0.0/24",
            "Only rows whose VTEP is in one of these prefixes",
            [](std::string const& text) { return IpPrefix(text); });
}

}  // namespace Agent
