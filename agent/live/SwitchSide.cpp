#include "agent/live/SwitchSide.h"

#include <malloc.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "Orb/Text.h"
#include "adapters/ovsdb/Switch.h"
#include "agent/base/UsageError.h"

namespace Agent {

namespace {

/// What one --switch says.
struct Given {
  std::string name;
  std::string endpoint;
};

Given givenIn(std::string const& text) {
  auto const equals = text.find('=');
  if (equals == 0 || equals == std::string::npos) {
    throw UsageError("--switch " + text + ": not NAME=ENDPOINT, such as leaf1=unix:/run/openvswitch/db.sock");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

}  // namespace

void SwitchOptions::addTo(CLI::App& command) {
  CLI::Option* const option =
      command
          .add_option("--switch", switches,
                      "A hardware VTEP switch, NAME=ENDPOINT, with the endpoint of its database: unix:PATH, "
                      "tcp:HOST:PORT or ssl:HOST:PORT; HOST is an address or localhost; may be repeated")
          ->allow_extra_args(false);
  command.add_option("--private-key", privateKey, "For ssl: our private key, in PEM")->needs(option);
  command.add_option("--certificate", certificate, "For ssl: our certificate, in PEM")->needs(option);
  command.add_option("--ca-cert", caCert, "For ssl: who signed the switches' certificates, in PEM")
      ->needs(option);
}

void SwitchOptions::check() const {
  std::set<std::string> names;
  for (std::string const& text : switches) {
    Given const given = givenIn(text);
    if (!names.insert(given.name).second) {
      throw UsageError("--switch " + text + ": there is another one called " + given.name);
    }
    try {
      bool const hasFiles = !privateKey.empty() && !certificate.empty() && !caCert.empty();
      if (Ovsdb::Endpoint(given.endpoint).isSsl() && !hasFiles) {
        throw std::invalid_argument("ssl needs --private-key, --certificate and --ca-cert");
      }
    } catch (std::invalid_argument const& error) {
      throw UsageError("--switch " + text + ": " + error.what());
    }
  }
}

struct SwitchSide::Parts {
  std::vector<std::unique_ptr<Ovsdb::Switch>> switches;
};

SwitchSide::SwitchSide(Loop& loop, SwitchOptions const& options, Sources& sources, Controller& controller)
    : parts_(std::make_unique<Parts>()) {
  options.check();
  // The entries of a lost switch are freed a part a turn. The C library would keep the small pieces and join
  // all of them in one later call: 45 ms in one turn for 100,000 rows.
  mallopt(M_MXFAST, 0);
  for (std::string const& text : options.switches) {
    Given const given = givenIn(text);
    SourceHandlers handlers =
        sources.add({.name = given.name, .kind = "switch", .endpoint = given.endpoint, .isNumbered = false});
    Ovsdb::Switch::Options of{
        given.name, given.endpoint, {options.privateKey, options.certificate, options.caCert}, {}};
    parts_->switches.push_back(
        std::make_unique<Ovsdb::Switch>(loop, std::move(of), std::move(handlers), controller.remoteRows()));
  }
}

SwitchSide::~SwitchSide() = default;

nlohmann::ordered_json SwitchSide::rowsOf(Vxlan::Vni vni) const {
  auto result = nlohmann::ordered_json::array();
  for (auto const& each : parts_->switches) {
    if (each->state() == SourceState::synced) result.push_back(each->rowsOf(vni));
  }
  return result;
}

nlohmann::ordered_json SwitchSide::remoteRowsOf(Vxlan::Vni vni, Wirix::EthAddr mac) const {
  auto result = nlohmann::ordered_json::array();
  for (auto const& each : parts_->switches) {
    if (each->state() != SourceState::synced || !each->serves(vni)) continue;
    auto rows = nlohmann::ordered_json::array();
    for (auto const& vteps : each->remoteRowsOf({vni, mac})) {
      auto& row = rows.emplace_back(nlohmann::ordered_json::array());
      for (Wirix::IpAddr const vtep : vteps) row.push_back(Orb::toText(vtep));
    }
    result.push_back({{"name", each->name()}, {"remote", std::move(rows)}});
  }
  return result;
}

void SwitchSide::describe(nlohmann::ordered_json& sources) const {
  for (auto& each : sources) {
    if (each["kind"] != "switch") continue;
    auto const found = std::find_if(parts_->switches.begin(), parts_->switches.end(),
                                    [&](auto const& tor) { return tor->name() == each["name"]; });
    each["remoteRows"] = (*found)->remoteRows();
    auto& leftOut = each["leftOut"] = nlohmann::ordered_json::object();
    for (auto const& [fault, rows] : (*found)->leftOut()) leftOut[std::string(fault)] = rows;
    if (std::string const& error = (*found)->lastError(); !error.empty()) each["lastError"] = error;
  }
}

}  // namespace Agent
