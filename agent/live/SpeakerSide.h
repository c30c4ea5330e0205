/// Agent::SpeakerSide: joins a site's tables with its BGP speaker.
///
///   input                    handler                 output
///   exported host table      handleHost(key)         routes of the speaker's own
///   exported flood table     handleFloodEntry(key)   routes of the speaker's own
///   exported state: whole    beginSending()               only then routes are announced and withdrawn
///   routes of neighbours     -                       events, to whoever listens
///
/// The tables that the agent exports are whole once every source that it has was, in this life of the tables.
/// An agent that goes leaves them as they are, and one that comes keeps what holds: so they stay whole.
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
  /// Raises UsageError for what is no endpoint or no router identifier, or is missing.
  void check() const;
};

/// The routes that a speaker announces for this site, as rows, asked of the speaker itself; `source` is what
/// describe() made of it. Preferences, which routes have not, are the default one. Raises std::exception.
SiteRows announcedBy(nlohmann::ordered_json const& source);

class SpeakerSide {
 public:
  /// `sources`: the EVPN side's, which the speaker becomes one of. Raises UsageError as check() does.
  SpeakerSide(Loop& loop, Site const& site, SpeakerOptions const& options, Sources& sources,
              Logs const& logs);
  ~SpeakerSide();
  SpeakerSide(SpeakerSide const&) = delete;
  SpeakerSide& operator=(SpeakerSide const&) = delete;

  /// To what Sources::state() says of the speaker adds what only it knows.
  void describe(nlohmann::ordered_json& sources) const;
  /// The route of a row that the site exports, as Gobgp::Speaker::route() says it.
  nlohmann::ordered_json route(QorEvpn::MacVniPair const& key) const;
  nlohmann::ordered_json route(QorEvpn::VniVtepPair const& key) const;

 private:
  class Machine;
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace Agent
