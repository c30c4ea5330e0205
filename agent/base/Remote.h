/// Agent::RemoteRows: the entries that are to be written to one switch: those that the controller has from
/// the other switches, from feeds and from EVPN, without entries that lead to the switch's own VTEPs.
///
/// The controller has one for each switch (Controller::remoteRows()); the adapter that writes the rows into
/// the switch's database uses it so:
///
///   1. Set handlersIs(): the controller calls a handler for each key that may have changed. The calls come
///      in the middle of the change: note the key, and compare it at the end of the turn or in the next one.
///   2. Call ownVtepsIs() as soon as the switch's tunnel addresses are known, and when they change. Compare
///      every key after that; no handler is called for it.
///   3. For each key that was noted, call mac() or flood(): it gives the row that should exist, or none. When
///      the switch begins to serve a VNI, call forEachMac() and forEachFlood(). Skip keys of VNIs that the
///      switch does not serve.
///   4. Remove a row at once if it was wanted in this run and is no longer wanted. Remove a row that was
///      never wanted in this run (of an earlier run, or of another program) only when isSettled(): until then
///      it may belong to a source that has not told its state yet. The handler `settled` announces that.
///
/// Call it from the loop only. The controller owns it: destroy the adapter before the controller.
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
