/// Agent::SwitchSide: the switches of a site, each a source of the controller's, and told in turn what the
/// controller knows from elsewhere.
///
/// A program that is built without adapters has none (NoSwitches.cpp).
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
  /// Raises UsageError for a name that is missing or there twice, an endpoint that cannot be read, or one of
  /// ssl without its files.
  void check() const;
};

class SwitchSide {
 public:
  /// Connects as the loop turns. `sources` and `controller` outlive it. Raises UsageError as check() does.
  SwitchSide(Loop& loop, SwitchOptions const& options, Sources& sources, Controller& controller);
  ~SwitchSide();
  /// What each one that is synced has of a VNI (agent/audit/RemoteTables.h).
  nlohmann::ordered_json rowsOf(Vxlan::Vni vni) const;
  /// Of each one that is synced and has the VNI, the remote rows of a MAC or of its flood list:
  /// [{"name": "leaf1", "remote": [["10.99.0.22"]]}].
  nlohmann::ordered_json remoteRowsOf(Vxlan::Vni vni, Wirix::EthAddr mac) const;
  SwitchSide(SwitchSide const&) = delete;
  SwitchSide& operator=(SwitchSide const&) = delete;

  /// To what Sources::state() says of the switches adds what only they know.
  void describe(nlohmann::ordered_json& sources) const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace Agent
