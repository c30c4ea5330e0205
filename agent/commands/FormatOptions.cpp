#include "agent/commands/FormatOptions.h"

#include <CLI/CLI.hpp>

namespace Agent {

namespace {

/// An option whose text `parse` turns into the value of `target`; what it raises is a fault of the command
/// line.
template <class T, class Parse>
void addFilter(CLI::App& command, std::string const& name, std::optional<T>& target, Parse parse,
               std::string const& help) {
  auto const take = [&target, parse, name](std::string const& text) {
    try {
      target = parse(text);
    } catch (Orb::Error const& error) {
      throw CLI::ValidationError(name, "'" + text + "': " + error.what());
    }
  };
  command.add_option_function<std::string>(name, take, help)
      ->type_name(name.substr(2) == "vni" ? "VNI" : "ADDRESS");
}

}  // namespace

void addViewOptions(CLI::App& command, ViewOptions& options) {
  command.add_option("--dir", options.dir, "The site's directory")->capture_default_str();
  command.add_flag("--json", options.json, "For programs");
}

void addRowOptions(CLI::App& command, ViewOptions& options) {
  command.add_flag("--learned", options.learned,
                   "The tables that the EVPN side writes, instead of those that the agent exports");
  command.add_flag("--text", options.text, "The values' own text")->excludes("--json");
  addFilter(
      command, "--vni", options.filter.vni,
      [](std::string const& text) { return Orb::parseWhole<Vxlan::Vni>(text); }, "Only rows of this VNI");
  addFilter(command, "--mac", options.filter.mac, macFromPeople, "Only rows of this MAC address");
  addFilter(
      command, "--vtep", options.filter.vtep, [](std::string const& text) { return Wirix::IpAddr(text); },
      "Only rows with this VTEP");
}

}  // namespace Agent
