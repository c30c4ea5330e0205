/// Agent::SpeakerSide: joins a site's tables with its BGP speaker.
///
///   input                    handler                 output
///   exported host table      handleHost(key)         routes of the speaker's own
///   exported flood table     handleFloodEntry(key)   routes of the speaker's own
///   exported state: whole    beginSending()          routes are announced and withdrawn from then on
///   routes of neighbours     -                       events for the EVPN side's sources
///
/// The agent's tables are whole when each of its sources has been synced once since the tables were made.
/// They stay whole from then on: an agent that ends leaves its rows, and the next one keeps those that are
/// valid.
///
/// A program that is built without adapters has no speakers (NoSpeaker.cpp).
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "agent/base/Loop.h"
#include "agent/feed/Sources.h"
#include "agent/site/Site.h"
#include "agent/tables/Tables.h"

namespace Agent {

/// The options of the commands that have a speaker.
struct SpeakerOptions {
  std::string endpoint;
  std::uint32_t as = 0;
  std::string routerId;

  void addTo(CLI::App& command);
  bool isGiven() const { return !endpoint.empty(); }
  /// Raises UsageError for a wrong endpoint or router identifier, and for a missing option.
  void check() const;
};

/// The routes that a speaker announces for this site, as rows; the speaker itself is asked. `source` is its
/// JSON as describe() completes it. Routes have no preference, so rows have the default one. Raises
/// std::exception.
SiteRows announcedBy(nlohmann::ordered_json const& source);

class SpeakerSide {
 public:
  /// Adds the speaker to `sources`, the EVPN side's. Raises UsageError as check() does.
  SpeakerSide(Loop& loop, Site const& site, SpeakerOptions const& options, Sources& sources,
              Logs const& logs);
  ~SpeakerSide();
  SpeakerSide(SpeakerSide const&) = delete;
  SpeakerSide& operator=(SpeakerSide const&) = delete;

  /// Adds the speaker's own members to its object in `sources`, the result of Sources::state().
  void describe(nlohmann::ordered_json& sources) const;
  /// The state of a row's route, in the form of Gobgp::Speaker::route().
  nlohmann::ordered_json route(QorEvpn::MacVniPair const& key) const;
  nlohmann::ordered_json route(QorEvpn::VniVtepPair const& key) const;

 private:
  class Machine;
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace Agent
