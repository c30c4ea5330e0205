#pragma once

#include <map>

#include "VxlanController/MacVtepV2.h"
#include "agent/Event.h"
#include "agent/SiteView.h"

/// What a site's tables must hold after some events, as a pure function of what both sides know. (Of an entry
/// that the module does not support, the model says that it publishes its VNI; the module does so from the
/// VNI's next event on. The traces have such entries only beside others.)
class FeedModel {
 public:
  void apply(Agent::Event const& event) {
    using Agent::Op;
    Place const place{event.vni, event.mac};
    bool const isEvpns = event.from == Agent::Origin::evpn;
    VxlanController::MacVtepV2 const entry(event.mac, event.vtep, event.seq, event.preference);
    switch (event.op) {
      case Op::enabled: enabled_ = event.value; return;
      case Op::capability: capability_ = event.value; return;
      case Op::mac: (isEvpns ? evpnMacs_ : macs_)[place] = entry; break;
      case Op::macDel: (isEvpns ? evpnMacs_ : macs_).erase(place); break;
      case Op::flood: (isEvpns ? evpnFloods_ : floods_)[{place, event.vtep}] = event.on; break;
      case Op::floodDel: (isEvpns ? evpnFloods_ : floods_).erase({place, event.vtep}); break;
      case Op::multipath: multipaths_[place] = true; break;
      case Op::multipathDel: multipaths_.erase(place); break;
      case Op::vni: break;
      case Op::vniDel:
        served_.erase(event.vni);
        std::erase_if(macs_, [&](auto const& each) { return each.first.vni == event.vni; });
        std::erase_if(floods_, [&](auto const& each) { return each.first.first.vni == event.vni; });
        std::erase_if(multipaths_, [&](auto const& each) { return each.first.vni == event.vni; });
        return;
    }
    bool const takesBack = event.op == Op::macDel || event.op == Op::floodDel || event.op == Op::multipathDel;
    if (!isEvpns && !takesBack) served_.insert(event.vni);
  }

  Agent::SiteRows exported() const {
    Agent::SiteRows rows;
    if (!isOn()) return rows;
    auto const publish = [&](Vxlan::Vni vni) {
      if (served_.contains(vni)) rows.bridgeIds.insert(Bridging::BridgeId::ofVni(vni));
    };
    for (auto const& [place, entry] : macs_) {
      publish(place.vni);
      auto const evpns = evpnMacs_.find(place);
      bool const isEvpns =
          evpns != evpnMacs_.end() && (evpns->second.seqNo() > entry.seqNo() || evpns->second == entry);
      if (!isEvpns) addHost(rows, place, entry);
    }
    for (auto const& [key, on] : floods_) {
      publish(key.first.vni);
      if (on && key.first.mac == Wirix::EthAddr() && !evpnFloods_.contains(key)) {
        rows.floods.emplace(key.first.vni, key.second);
      }
    }
    for (auto const& [place, entry] : evpnMacs_) publish(place.vni);
    for (auto const& [key, on] : evpnFloods_) publish(key.first.vni);
    for (auto const& [place, present] : multipaths_) publish(place.vni);
    return rows;
  }

  nlohmann::json evpnStatus() const {
    Agent::SiteRows rows;
    if (isOn()) {
      for (auto const& [place, entry] : evpnMacs_) addHost(rows, place, entry);
      for (auto const& [key, on] : evpnFloods_) rows.floods.emplace(key.first.vni, key.second);
    }
    return Agent::evpnStatusOf(rows);
  }

 private:
  struct Place {
    Vxlan::Vni vni;
    Wirix::EthAddr mac;
    auto operator<=>(Place const&) const = default;
  };
  using Macs = std::map<Place, VxlanController::MacVtepV2>;
  using Floods = std::map<std::pair<Place, Wirix::IpAddr>, bool>;

  bool isOn() const { return enabled_ && capability_; }

  static void addHost(Agent::SiteRows& rows, Place const& place, VxlanController::MacVtepV2 const& entry) {
    QorEvpn::Host row(QorEvpn::MacVniPair(place.mac, place.vni));
    row.vtepAddrIs(entry.vtepAddr());
    row.seqNoIs(entry.seqNo());
    row.preferenceIs(entry.preference());
    rows.hosts.emplace(row.key(), row);
  }

  bool enabled_ = false, capability_ = false;
  std::set<Vxlan::Vni> served_;
  Macs macs_, evpnMacs_;
  Floods floods_, evpnFloods_;
  std::map<Place, bool> multipaths_;
};
