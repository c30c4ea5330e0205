/// Agent::RemoteRows: what one switch is to be told, which is what the controller knows from elsewhere - the
/// other switches, feeds, EVPN - without whatever leads to the switch's own VTEPs.
///
/// The controller has one for each switch (Controller::remoteRows()); the adapter that writes the rows into
/// the switch's database uses it so:
///
///   1. handlersIs(): whenever something may have changed, the controller names it. The calls come in the
///      middle of the change, in any number: note the key, and look at the end of the turn or in the next
///      one.
///   2. ownVtepsIs() as soon as the switch's tunnel addresses are known, and when they change. Look at
///      everything again then; no handler is called for it.
///   3. For each key that was noted, mac() or flood() gives the row that should be there, or none. A VNI that
///      the switch comes to have: forEachMac(), forEachFlood(). Keys of VNIs that it has not got are of no
///      use.
///   4. Removing rows. What was wanted in this run and no longer is may go at once. A row that was never
///      wanted in this run, so of an earlier run or of somebody else's, goes once isSettled(): until then it
///      may belong to a source that has not told its state yet. The handler `settled` says when that comes.
///
/// Only from the loop. The controller owns it: the adapter must be gone before the controller is.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <vector>

#include "Vxlan/Vni.h"
#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"

namespace Agent {

class RemoteRows {
 public:
  struct Handlers {
    /// The VNI is served from now on, or no longer: all of its rows may differ.
    std::function<void(Vxlan::Vni)> vni;
    std::function<void(Vxlan::Vni, Wirix::EthAddr)> mac;
    /// The flood list of this MAC, 00:00:00:00:00:00 being all BUM traffic.
    std::function<void(Vxlan::Vni, Wirix::EthAddr)> flood;
    /// isSettled() from now on.
    std::function<void()> settled;
  };
  /// The VTEPs of a flood list that are on, by address; never none.
  using Vteps = std::vector<Wirix::IpAddr>;

  virtual ~RemoteRows() = default;

  virtual void handlersIs(Handlers handlers) = 0;
  virtual void ownVtepsIs(std::set<Wirix::IpAddr> vteps) = 0;

  /// The VTEP behind which the MAC lives elsewhere.
  virtual std::optional<Wirix::IpAddr> mac(Vxlan::Vni vni, Wirix::EthAddr mac) const = 0;
  /// The VTEPs elsewhere of the flood list of a MAC; empty where there is none.
  virtual Vteps flood(Vxlan::Vni vni, Wirix::EthAddr mac) const = 0;
  /// Each such row of a VNI, in no order; none where the VNI is not served.
  virtual void forEachMac(Vxlan::Vni vni,
                          std::function<void(Wirix::EthAddr, Wirix::IpAddr)> const& visit) const = 0;
  virtual void forEachFlood(Vxlan::Vni vni,
                            std::function<void(Wirix::EthAddr, Vteps const&)> const& visit) const = 0;

  /// Every source, EVPN's side too, has told its state or was given up.
  virtual bool isSettled() const = 0;
};

}  // namespace Agent
