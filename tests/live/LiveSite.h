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

namespace TestSupport {

/// A command that tells what happens somewhere, and what it tells of removals.
class Observer {
 public:
  /// `mark`: what is in the line of a removal, and in no other.
  Observer(std::vector<std::string> command, std::string mark)
      : mark_(std::move(mark)), process_([this, &command](Child&) { execute(command, path()); }) {}

  /// All that it told so far.
  std::vector<std::string> removals() const {
    std::ifstream file(path());
    std::vector<std::string> found;
    for (std::string line; std::getline(file, line);) {
      if (line.find(mark_) != std::string::npos) found.push_back(line);
    }
    return found;
  }

 private:
  std::string path() const { return folder_.path() + "/said"; }

  ScratchFolder folder_;
  std::string mark_;
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
      : number_(number), isOneProcess_(isOneProcess), speaker_(number, {other}) {
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
      (isLearned ? fromOthers_ : ours_).push_back(observer(command, R"("event":"removed")"));
    }
    for (Database const& each : databases_) observe(each);
    observeBgp();
  }

  void start(Part part) {
    std::vector<std::string> const bgp{"--speaker",   speaker_.endpoint(),
                                       "--as",        std::to_string(speaker_.as()),
                                       "--router-id", speaker_.routerId()};
    std::vector<std::string> arguments;
    if (part == agent) {
      arguments = {"agent", "--dir", site_.dir};
      for (unsigned tor = 0; tor < switches; ++tor) {
        arguments.insert(arguments.end(), {"--switch", nameOf(tor) + "=" + databases_[tor].endpoint()});
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
  /// A server stands still, and goes on.
  void pause(Part part, bool isOn) const {
    ::kill(part == speaker ? speaker_.pid() : databases_[1].pid(), isOn ? SIGSTOP : SIGCONT);
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
  static Observed observer(std::vector<std::string> command, std::string const& mark) {
    return {std::make_unique<Observer>(std::move(command), mark)};
  }
  // Both end with their server.
  void observe(Database const& of) {
    fromOthers_.push_back(observer({"ovsdb-client", "-f", "csv", "--no-headings", "monitor", of.endpoint(),
                                    "hardware_vtep", "Ucast_Macs_Remote", "MAC"},
                                   ",delete,"));
  }
  void observeBgp() {
    fromOthers_.push_back(observer(
        {"gobgp", "-u", ownLoopback(number_), "monitor", "global", "rib", "-a", "evpn"}, "[DELROUTE]"));
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
  AgentSite site_;
  std::map<unsigned, Place> hosts_;
  std::unique_ptr<Program> agent_, evpn_;
  std::vector<Observed> ours_, fromOthers_;
};

}  // namespace TestSupport
