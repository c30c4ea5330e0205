/// Agent::ServedVni: merges the entries that sources and EVPN have of one VNI, by the rules in
/// agent/controller/Controller.h.
///
///   input                                   handler                    output
///   VniStatusV2.macVtepTable                handleMac(mac)             VniFdbStatusV2.macVtepTable
///   VniStatusV2.macVtepFloodListTable       handleFloodList(mac)       the list is watched, and as below
///   MacVtepFloodListV2.vtepIpFloodList      handleFloodVtep(address)   the all-BUM list of VniFdbStatusV2
///   the controller, for a source            macIs(), floodIs(), ...    the same tables
#pragma once

#include <list>
#include <memory>

#include "DataModel/VniFdbStatusV2.h"
#include "DataModel/VniStatusV2.h"
#include "Orb/StateMachine.h"
#include "agent/controller/Ledger.h"

namespace Agent {

class Controller;

/// Owned and called by the controller.
class ServedVni : public Orb::StateMachine<ServedVni> {
 public:
  using EvpnStatusPtr = Orb::Ptr<VxlanController::VniStatusV2 const>;

  ServedVni(Controller& controller, Vxlan::Vni vni);
  ~ServedVni() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  /// What the controller publishes about the VNI.
  Orb::Ptr<VxlanController::VniFdbStatusV2> const& vniFdbStatus() const { return vniFdbStatus_; }

  /// EVPN's status of the VNI, or null. Setting another status merges every key of the old and the new one.
  EvpnStatusPtr const& vniStatusFromEvpn() const { return vniStatusFromEvpn_.notifier(); }
  void vniStatusFromEvpnIs(EvpnStatusPtr const& status);

  /// The ledgers of a source, or null.
  SourcePart* part(SourceId source);
  /// The ledgers of a source, made if they are missing.
  SourcePart& part(SourceId source, bool isNumbered);
  void partDel(SourcePart const& part);
  /// A source begins to tell its state again.
  void begin(SourceId source);
  /// Whether a source or the earlier run serves the VNI.
  bool isServed() const { return earlier_ || !parts_.empty(); }

  /// `isNews`: a switch that had no entry of the MAC has just heard it. A claim whose `since` is not 0 comes
  /// from a recording's state; a switch's claim has its `order` in `seq` then.
  void macIs(SourcePart& part, Wirix::EthAddr mac, Claim claim, bool isNews);
  void macDel(SourcePart& part, Wirix::EthAddr mac);
  void floodIs(SourcePart& part, Wirix::EthAddr mac, Wirix::IpAddr vtep, FloodClaim claim);
  void floodDel(SourcePart& part, Wirix::EthAddr mac, Wirix::IpAddr vtep);
  void multipathIs(SourcePart& part, Wirix::EthAddr mac, MultipathClaim claim);
  void multipathDel(SourcePart& part, Wirix::EthAddr mac);
  /// Merges every key of entries that were dropped.
  void mergeAll(VniLedger const& dropped);
  /// Removes at most `limit` entries of a ledger, subtracts their number from `limit`, and merges their keys.
  /// True if the ledger is empty then.
  bool drop(VniLedger& ledger, std::size_t& limit);

  /// Whose entry of a MAC is in force, and why, for people.
  struct Verdict {
    std::optional<SourceId> source;  ///< Empty for EVPN's entry.
    std::string_view why;
  };
  Verdict verdict(Wirix::EthAddr mac);
  /// Calls `visit` with each source's entry of a MAC, its VTEP in a flood list, or its multipath entry of a
  /// MAC; the earlier run comes last.
  void forEachClaim(Wirix::EthAddr mac, std::function<void(SourceId, Claim const&)> const& visit) const;
  void forEachFloodClaim(Wirix::EthAddr mac, Wirix::IpAddr vtep,
                         std::function<void(SourceId, FloodClaim const&)> const& visit) const;
  void forEachMultipathClaim(Wirix::EthAddr mac,
                             std::function<void(SourceId, MultipathClaim const&)> const& visit) const;

  // Parts of Controller::tellState(); and what it told of the numbers of switches' entries.
  void tellEarlier(SourceLedgers::Tell const& tell) const;
  void tellParts(VniLedger SourcePart::*ledger, SourceLedgers::Tell const& tell) const;
  void tellNumbers(SourceLedgers::Tell const& tell) const;
  void numberIs(Wirix::EthAddr mac, Wirix::IpAddr vtep, Seqno32 seq);

  // What an earlier run left.
  void earlierMacIs(VxlanController::MacVtepV2 const& entry);
  void earlierFloodIs(Wirix::IpAddr vtep);
  void earlierIsPublished();
  /// As drop(), of what it left.
  bool earlierDel(std::size_t& limit);

  void handleInitialized();
  void handleMac(Wirix::EthAddr const& mac) { mergeMac(mac, true); }
  void handleFloodList(Wirix::EthAddr const& mac);
  void handleFloodVtep(Wirix::IpAddr const& vtep);

  class OrbVniStatusFromEvpn
      : public Reactor<
            VxlanController::VniStatusV2,
            On<VxlanController::VniStatusV2::macVtepTableAttr, &ServedVni::handleMac>,
            On<VxlanController::VniStatusV2::macVtepFloodListTableAttr, &ServedVni::handleFloodList>> {
    using Reactor::Reactor;
  };
  class OrbFloodListFromEvpn
      : public Reactor<
            VxlanController::MacVtepFloodListV2,
            On<VxlanController::MacVtepFloodListV2::vtepIpFloodListAttr, &ServedVni::handleFloodVtep>> {
    using Reactor::Reactor;
  };

 private:
  friend StateMachine;
  auto inputs() { return std::tie(vniStatusFromEvpn_, floodListFromEvpn_); }

  /// The sequence number of the switches' entry of a MAC, and the VTEP for which it was given.
  struct Number {
    Wirix::IpAddr vtep;
    Seqno32 seq;
    friend bool operator==(Number const&, Number const&) = default;
  };

  /// Someone's entry of a MAC.
  struct Found {
    Claim const* claim = nullptr;
    SourceId source = 0;
    explicit operator bool() const { return claim != nullptr; }
  };
  struct Own {
    VxlanController::MacVtepV2 entry;
    SourceId source;
    std::string_view why;
    bool isNumbered;  ///< By its source.
  };

  VniLedger& earlier();
  void renumber(Wirix::EthAddr mac, Wirix::IpAddr vtep);
  VxlanController::MacVtepV2 const* evpnsMac(Wirix::EthAddr mac) const;
  Found numberedClaim(Wirix::EthAddr mac) const;
  Found switchesClaim(Wirix::EthAddr mac, Number const* number) const;
  std::optional<Own> ownMac(Wirix::EthAddr mac);
  bool isEvpnsBefore(Own const& own, VxlanController::MacVtepV2 const& evpns) const;
  void mergeMac(Wirix::EthAddr mac, bool isEvpns);
  void mergeFlood(Wirix::EthAddr mac, Wirix::IpAddr vtep);
  void mergeMultipath(Wirix::EthAddr mac);
  std::optional<bool> isOn(Wirix::EthAddr mac, Wirix::IpAddr vtep) const;

  Controller& controller_;
  Orb::Ptr<VxlanController::VniFdbStatusV2> vniFdbStatus_;
  std::list<SourcePart> parts_;  ///< Few, so a list is searched fast.
  std::unique_ptr<VniLedger> earlier_;
  Orb::FlatMap<Wirix::EthAddr, Number> numbers_;
  std::uint32_t heard_ = 0;       ///< The `order` of the entry that was heard last.
  EvpnStatusPtr formerFromEvpn_;  ///< The former status while another one takes its place.
  Orb::Input<OrbVniStatusFromEvpn> vniStatusFromEvpn_;
  Orb::Input<OrbFloodListFromEvpn> floodListFromEvpn_;
};

}  // namespace Agent
