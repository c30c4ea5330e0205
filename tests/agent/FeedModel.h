#pragma once

#include <map>

#include "agent/feed/Sources.h"
#include "agent/views/SiteView.h"

/// What a site's tables must hold after some events, as a pure function of what both sides know. (Of an entry
/// that the module does not support, the model says that it publishes its VNI; the module does so from the
/// VNI's next event on. The traces have such entries only beside others.)
class FeedModel {
 public:
  void apply(Agent::Event const& event) {
    using Agent::Op;
    if (!Agent::refusalOf(event).empty()) return;
    Place const place{event.vni, event.mac};
    auto& [on, macs, floods, multipaths] = event.from == Agent::Origin::evpn ? evpn_ : controller_;
    switch (event.op) {
      case Op::enabled:
      case Op::capability: on = event.value; return;
      case Op::mac: macs.insert_or_assign(place, rowOf(event)); break;
      case Op::macDel: macs.erase(place); return;
      case Op::flood: floods[{place, event.vtep}] = event.on; break;
      case Op::floodDel: floods.erase({place, event.vtep}); return;
      case Op::multipath: multipaths.insert(place); break;
      case Op::multipathDel: multipaths.erase(place); return;
      case Op::synced: return;
      case Op::vni: break;
      case Op::vniDel:
        served_.erase(event.vni);
        std::erase_if(macs, [&](auto const& each) { return each.first.vni == event.vni; });
        std::erase_if(floods, [&](auto const& each) { return each.first.first.vni == event.vni; });
        std::erase_if(multipaths, [&](Place const& each) { return each.vni == event.vni; });
        return;
    }
    if (event.from == Agent::Origin::controller) served_.insert(event.vni);
  }

  Agent::SiteRows exported() const {
    Agent::SiteRows rows;
    if (!isOn()) return rows;
    for (auto const& [place, row] : controller_.macs) {
      auto const evpns = evpn_.macs.find(place);
      if (evpns == evpn_.macs.end() || !(evpns->second.seqNo() > row.seqNo() || evpns->second == row))
        rows.add(row);
    }
    for (auto const& [key, on] : controller_.floods) {
      if (on && key.first.mac == Wirix::EthAddr() && !evpn_.floods.contains(key)) rows.add(flood(key));
    }
    std::set<Vxlan::Vni> published;
    auto const publish = [&](Place const& place) {
      bool const isNew = served_.contains(place.vni) && published.insert(place.vni).second;
      if (isNew) rows.add(Bridging::BridgeId::ofVni(place.vni));
    };
    for (Known const* known : {&controller_, &evpn_}) {
      for (auto const& each : known->macs) publish(each.first);
      for (auto const& each : known->floods) publish(each.first.first);
      for (Place const& place : known->multipaths) publish(place);
    }
    rows.sort();
    return rows;
  }

  Agent::SiteRows imported() const {
    Agent::SiteRows rows;
    if (isOn()) {
      for (auto const& [place, row] : evpn_.macs) rows.add(row);
      for (auto const& [key, on] : evpn_.floods) rows.add(flood(key));
    }
    rows.sort();
    return rows;
  }

 private:
  struct Place {
    Vxlan::Vni vni;
    Wirix::EthAddr mac;
    auto operator<=>(Place const&) const = default;
  };
  struct Known {
    bool on = false;  // the controller is enabled, or the EVPN side capable
    std::map<Place, QorEvpn::Host> macs;
    std::map<std::pair<Place, Wirix::IpAddr>, bool> floods;
    std::set<Place> multipaths;
  };

  bool isOn() const { return controller_.on && evpn_.on; }

  static QorEvpn::FloodEntry flood(std::pair<Place, Wirix::IpAddr> const& key) {
    return QorEvpn::FloodEntry(QorEvpn::VniVtepPair(key.first.vni, key.second));
  }
  static QorEvpn::Host rowOf(Agent::Event const& event) {
    QorEvpn::Host row(QorEvpn::MacVniPair(event.mac, event.vni));
    row.vtepAddrIs(event.vtep);
    row.seqNoIs(event.seq);
    row.preferenceIs(event.preference);
    return row;
  }

  Known controller_, evpn_;
  std::set<Vxlan::Vni> served_;
};
