#pragma once

#include <signal.h>
#include <unistd.h>

#include <array>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "agent/AgentSite.h"
#include "support/Database.h"
#include "support/Gobgpd.h"
#include "tests/live/Relay.h"

namespace TestSupport {

/// A command that tells what happens somewhere, and what it tells of removals.
class Observer {
 public:
  /// `marks`: what is in the line of a removal, one of them, and in no other.
  Observer(std::vector<std::string> command, std::vector<std::string> marks)
      : marks_(std::move(marks)), process_([this, &command](Child&) { execute(command, path()); }) {}

  /// It has told what was there.
  bool isThere() const { return std::ifstream(path()).peek() != std::ifstream::traits_type::eof(); }

  /// All that it told so far.
  std::vector<std::string> removals() const {
    std::ifstream file(path());
    std::vector<std::string> found;
    for (std::string line; std::getline(file, line);) {
      bool const isRemoval = std::ranges::any_of(
          marks_, [&](std::string const& mark) { return line.find(mark) != std::string::npos; });
      if (isRemoval) found.push_back(line);
    }
    return found;
  }

 private:
  std::string path() const { return folder_.path() + "/said"; }

  ScratchFolder folder_;
  std::vector<std::string> marks_;
  Child process_;
};

/// A site with two switches and a BGP speaker: their real servers, our processes between them, observers of
/// removals in tables, databases and BGP, and what must be known everywhere once all is at rest.
class LiveSite {
 public:
  enum Part { agent, evpn, database, speaker };
  static constexpr unsigned switches = 2;

  /// Numbered from 1. `isOneProcess`: agent and EVPN side are one.
  LiveSite(unsigned number, unsigned other, bool isOneProcess)
      : number_(number),
        isOneProcess_(isOneProcess),
        speaker_(number, {other}),
        toSpeaker_(ownLoopback(100 + number) + ":50051", speaker_.endpoint()) {
    for (unsigned tor = 0; tor < switches; ++tor) {
      databases_[tor].vtep("add-ps tor -- set Physical_Switch tor tunnel_ips=" + vtep(tor, 0) + ',' +
                           vtep(tor, 1) + " -- add-ls red -- set Logical_Switch red tunnel_key=5000" +
                           " -- add-mcast-local red unknown-dst " + vtep(tor, 0));
    }
  }

  void start() {
    start(evpn);
    start(agent);
    for (bool const isLearned : {false, true}) {
      std::vector<std::string> command{programPath(), "watch",   "hosts",  "floods",
                                       "--dir",       site_.dir, "--stay", "--json"};
      if (isLearned) command.push_back("--learned");
      (isLearned ? fromOthers_ : ours_).push_back(observer(command, {R"("event":"removed")"}));
    }
    for (Database const& each : databases_) observe(each);
    observeBgp();
  }
  /// Once switches have been told of flood lists: from now on a list that changes loses a VTEP.
  void observeFloods() {
    for (Database const& each : databases_) observeFloods(each);
  }
  /// A line of an observer is about a host or a VTEP of this site.
  bool isOurs(std::string const& line) const {
    auto const has = [&](std::string const& text) { return line.find(text) != std::string::npos; };
    return has(mac(0).substr(0, 6)) || has(vtep(0, 0).substr(0, 8));
  }
  /// What is between us and a source: a database that is killed, a speaker, the second switch of an agent.
  Relay& relayOf(Part part) {
    return part == speaker || part == evpn ? toSpeaker_ : toSwitches_[part == database ? 0 : 1];
  }
  std::string sourceOf(Part part) const {
    return part == speaker || part == evpn ? "speaker" : nameOf(part == database ? 0 : 1);
  }

  void start(Part part) {
    std::vector<std::string> const bgp{"--speaker",   toSpeaker_.endpoint(),
                                       "--as",        std::to_string(speaker_.as()),
                                       "--router-id", speaker_.routerId()};
    std::vector<std::string> arguments;
    if (part == agent) {
      arguments = {"agent", "--dir", site_.dir, "--record", recording()};
      for (unsigned tor = 0; tor < switches; ++tor) {
        arguments.insert(arguments.end(), {"--switch", nameOf(tor) + "=" + toSwitches_[tor].endpoint()});
      }
      if (isOneProcess_) arguments.insert(arguments.end(), bgp.begin(), bgp.end());
      agent_ = std::make_unique<Program>(arguments);
    } else if (part == evpn && !isOneProcess_) {
      arguments = {"evpn", "--dir", site_.dir};
      arguments.insert(arguments.end(), bgp.begin(), bgp.end());
      evpn_ = std::make_unique<Program>(arguments);
    } else if (part == database) {
      databases_[0].start();
      observe(databases_[0]);
      awaitObserver();
      observeFloods(databases_[0]);
    } else if (part == speaker) {
      speaker_.start();
      observeBgp();
    }
  }
  /// SIGKILL. Of the databases the first one.
  void kill(Part part) {
    if (part == agent) agent_.reset();
    if (part == evpn) evpn_.reset();
    if (part == database) databases_[0].kill();
    if (part == speaker) speaker_.kill();
  }
  /// A switch hears hosts that nobody had, each with a sequence number of 0 then.
  void learn(unsigned tor, unsigned first, unsigned count) {
    std::string command;
    for (unsigned host = first; host < first + count; ++host) {
      hosts_[host] = {tor, 0, 0};
      command += (command.empty() ? "add-ucast-local red " : " -- add-ucast-local red ") + mac(host) + ' ' +
                 vtep(tor, 0);
    }
    databases_[tor].vtep(command);
  }
  /// A host moves behind the other VTEP of its switch.
  void move(unsigned host) {
    auto& [tor, place, seq] = hosts_.at(host);
    place = 1 - place;
    ++seq;
    databases_[tor].vtep("del-ucast-local red " + mac(host) + " -- add-ucast-local red " + mac(host) + ' ' +
                         vtep(tor, place));
  }
  void forget(unsigned host) {
    databases_[hosts_.at(host).tor].vtep("del-ucast-local red " + mac(host));
    hosts_.erase(host);
  }
  std::size_t hosts() const { return hosts_.size(); }
  unsigned torOf(unsigned host) const { return hosts_.at(host).tor; }
  Database const& databaseOf(unsigned tor) const { return databases_[tor]; }

  /// "MAC VTEP SEQ" of what its switches know, and what its tables say.
  std::set<std::string> known() const {
    std::set<std::string> rows;
    for (auto const& [host, at] : hosts_) {
      rows.insert(mac(host) + ' ' + vtep(at.tor, at.place) + ' ' + std::to_string(at.seq));
    }
    return rows;
  }
  std::set<std::string> exported() { return textOf(site_.view.exported().of<QorEvpn::Host>()); }
  std::set<std::string> learned() { return textOf(site_.view.learned().of<QorEvpn::Host>()); }
  /// Each switch has been told of the other site's hosts, and of its neighbour's.
  bool areSwitchesTold(LiveSite const& other) const {
    for (unsigned tor = 0; tor < switches; ++tor) {
      std::vector<std::string> expected{"unknown-dst " + vtep(1 - tor, 0)};
      for (unsigned each = 0; each < switches; ++each)
        expected.push_back("unknown-dst " + other.vtep(each, 0));
      for (LiveSite const* const site : {this, &other}) {
        for (auto const& [host, at] : site->hosts_) {
          if (site == this && at.tor == tor) continue;
          expected.push_back(site->mac(host) + ' ' + site->vtep(at.tor, at.place));
        }
      }
      std::sort(expected.begin(), expected.end());
      if (databases_[tor].remoteMacs("red") != expected) return false;
    }
    return true;
  }

  /// The tables, its switches' and what the speaker announces are as they should be.
  bool isSound() const { return run({"audit", "--dir", site_.dir, "--pause", "0.2"}).status == 0; }

  /// What the agent wrote down in all its lives leads to what it has now.
  bool isReplayed() const {
    std::string const now =
        run({"show", "-j", "--dir", site_.dir, "hosts", "floods", "bridge-ids", "evpn-status"}).out;
    return run({"replay", "-j", recording()}).out == now;
  }

  /// The state of a source, "speaker" or a switch's name, or nothing as long as nobody answers.
  std::string stateOf(std::string const& source) const {
    bool const isAgents = isOneProcess_ || source != "speaker";
    try {
      auto const state = Agent::controlRequest(
          Agent::Site(site_.dir), "state", isAgents ? Agent::ControlSide::agent : Agent::ControlSide::evpn);
      for (auto const& each : state["sources"]) {
        if (each["name"] == source) return each["state"];
      }
    } catch (std::exception const&) {
    }
    return {};
  }
  std::string nameOf(unsigned tor) const { return "tor" + std::to_string(tor); }

  /// What observers told since this was asked last: of what this site exports, and of what it has from
  /// others - its learned tables, its switches' remote rows, the routes in its speaker's table.
  std::vector<std::string> removedOfOurs() { return news(ours_); }
  std::vector<std::string> removedFromOthers() { return news(fromOthers_); }

  std::string mac(unsigned host) const {
    std::array<char, 18> text;
    std::snprintf(text.data(), text.size(), "02:0%u:00:00:%02x:%02x", number_, host >> 8 & 255, host & 255);
    return text.data();
  }
  std::string vtep(unsigned tor, unsigned place) const {
    return "10.99." + std::to_string(number_) + '.' + std::to_string(1 + 2 * tor + place);
  }
  std::string errors() const { return agent_->errors() + (evpn_ ? evpn_->errors() : ""); }

 private:
  struct Place {
    unsigned tor, place, seq;
  };
  struct Observed {
    std::unique_ptr<Observer> observer;
    std::size_t asked = 0;
  };
  std::string recording() const { return site_.folder.path() + "/agent.rec"; }
  static Observed observer(std::vector<std::string> command, std::vector<std::string> marks) {
    return {std::make_unique<Observer>(std::move(command), std::move(marks))};
  }
  // Each ends with its server.
  void observe(Database const& of) { observe(of, "Ucast_Macs_Remote", "MAC", {",delete,"}); }
  void observeFloods(Database const& of) {
    observe(of, "Mcast_Macs_Remote", "MAC,locator_set", {",delete,", ",old,"});
    awaitObserver();
  }
  void observe(Database const& of, std::string const& table, std::string const& columns,
               std::vector<std::string> marks) {
    fromOthers_.push_back(observer({"ovsdb-client", "-f", "csv", "--no-headings", "monitor", of.endpoint(),
                                    "hardware_vtep", table, columns},
                                   std::move(marks)));
  }
  /// The last one has told what was there.
  void awaitObserver() const {
    EXPECT_TRUE(becomes([&] { return fromOthers_.back().observer->isThere(); }));
  }
  void observeBgp() {
    fromOthers_.push_back(observer(
        {"gobgp", "-u", ownLoopback(number_), "monitor", "global", "rib", "-a", "evpn"}, {"[DELROUTE]"}));
  }
  static std::vector<std::string> news(std::vector<Observed>& observers) {
    std::vector<std::string> result;
    for (Observed& each : observers) {
      auto const all = each.observer->removals();
      result.insert(result.end(), all.begin() + static_cast<std::ptrdiff_t>(each.asked), all.end());
      each.asked = all.size();
    }
    return result;
  }
  static std::set<std::string> textOf(std::vector<QorEvpn::Host> const& hosts) {
    std::set<std::string> rows;
    for (QorEvpn::Host const& row : hosts) {
      rows.insert(Orb::toText(row.key().macAddr()) + ' ' + Orb::toText(row.vtepAddr()) + ' ' +
                  Orb::toText(row.seqNo()));
    }
    return rows;
  }

  unsigned number_;
  bool isOneProcess_;
  Gobgpd speaker_;
  std::array<Database, switches> databases_;
  Relay toSpeaker_;
  Relay toSwitches_[switches] = {{databases_[0].endpoint() + ".relay", databases_[0].endpoint()},
                                 {databases_[1].endpoint() + ".relay", databases_[1].endpoint()}};
  AgentSite site_;
  std::map<unsigned, Place> hosts_;
  std::unique_ptr<Program> agent_, evpn_;
  std::vector<Observed> ours_, fromOthers_;
};

}  // namespace TestSupport
