/// Agent::SwitchSide: the switches of a site. Each is a source of the controller; the entries that the
/// controller has from elsewhere are written into its database.
///
/// A program that is built without adapters has no switches (NoSwitches.cpp).
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "agent/base/Loop.h"
#include "agent/controller/Controller.h"
#include "agent/feed/Sources.h"

namespace Agent {

struct SwitchOptions {
  std::vector<std::string> switches;  ///< NAME=ENDPOINT each.
  std::string privateKey, certificate, caCert;

  void addTo(CLI::App& command);
  bool areGiven() const { return !switches.empty(); }
  /// Raises UsageError for a name that is missing or given twice, for a wrong endpoint, and for an endpoint
  /// of ssl without its files.
  void check() const;
};

class SwitchSide {
 public:
  /// Connects in the turns of the loop. `sources` and `controller` must outlive it. Raises UsageError as
  /// check() does.
  SwitchSide(Loop& loop, SwitchOptions const& options, Sources& sources, Controller& controller);
  ~SwitchSide();
  /// The rows of a VNI in the tables of each synced switch (agent/audit/RemoteTables.h).
  nlohmann::ordered_json rowsOf(Vxlan::Vni vni) const;
  /// The remote rows of a MAC, or of its flood list, in each synced switch that has the VNI:
  /// [{"name": "leaf1", "remote": [["10.99.0.22"]]}].
  nlohmann::ordered_json remoteRowsOf(Vxlan::Vni vni, Wirix::EthAddr mac) const;
  SwitchSide(SwitchSide const&) = delete;
  SwitchSide& operator=(SwitchSide const&) = delete;

  /// Adds each switch's own members to its object in `sources`, the result of Sources::state().
  void describe(nlohmann::ordered_json& sources) const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace Agent
