/// Agent::ServedVni: merges what sources and EVPN know of one VNI; agent/controller/Controller.h has the
/// rules.
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

/// Merges one VNI.
class ServedVni : public Orb::StateMachine<ServedVni> {
 public:
  using EvpnStatusPtr = Orb::Ptr<VxlanController::VniStatusV2 const>;

  ServedVni(Controller& controller, Vxlan::Vni vni);
  ~ServedVni() override { teardown(); }
  static Orb::TypeDescriptor const& type();

  /// What the controller publishes about the VNI.
  Orb::Ptr<VxlanController::VniFdbStatusV2> const& vniFdbStatus() const { return vniFdbStatus_; }

  /// EVPN's status of the VNI, or null. Another one, or none, merges what either has.
  EvpnStatusPtr const& vniStatusFromEvpn() const { return vniStatusFromEvpn_.notifier(); }
  void vniStatusFromEvpnIs(EvpnStatusPtr const& status);

  /// The ledgers of a source, or null.
  SourcePart* part(SourceId source);
  /// The same, made if there are none.
  SourcePart& part(SourceId source, bool isNumbered);
  void partDel(SourcePart const& part);
  /// A source begins to tell its state again.
  void begin(SourceId source);
  /// Whether anybody serves the VNI.
  bool isServed() const { return earlier_ || !parts_.empty(); }

  /// `isNews`: a switch that had no entry of the MAC has just heard it. A claim with a `since` was told
  /// before; a switch's has its order in place of its number then.
  void macIs(SourcePart& part, Wirix::EthAddr mac, Claim claim, bool isNews);
  void macDel(SourcePart& part, Wirix::EthAddr mac);
  void floodIs(SourcePart& part, Wirix::EthAddr mac, Wirix::IpAddr vtep, FloodClaim claim);
  void floodDel(SourcePart& part, Wirix::EthAddr mac, Wirix::IpAddr vtep);
  void multipathIs(SourcePart& part, Wirix::EthAddr mac, std::vector<Wirix::IpAddr> vteps);
  void multipathDel(SourcePart& part, Wirix::EthAddr mac);
  /// Merges every key of entries that were dropped.
  void mergeAll(VniLedger const& dropped);
  /// Drops at most `limit` entries of a ledger, counts it down, and merges their keys; true where none is
  /// left.
  bool drop(VniLedger& ledger, std::size_t& limit);

  /// Why the merged entry of a MAC is as it is, for people.
  struct Verdict {
    std::optional<SourceId> source;  ///< Whose it is, or nothing: EVPN's.
    std::string_view why;
  };
  Verdict verdict(Wirix::EthAddr mac);
  /// What each source, and an earlier run last, says of a MAC, or of a VTEP in a flood list.
  void forEachClaim(Wirix::EthAddr mac, std::function<void(SourceId, Claim const&)> const& visit) const;
  void forEachFloodClaim(Wirix::EthAddr mac, Wirix::IpAddr vtep,
                         std::function<void(SourceId, FloodClaim const&)> const& visit) const;

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

  /// The number that the switches' entry of a MAC has, behind this VTEP.
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
  };

  VniLedger& earlier();
  void renumber(Wirix::EthAddr mac, Wirix::IpAddr vtep);
  VxlanController::MacVtepV2 const* evpnsMac(Wirix::EthAddr mac) const;
  Found numberedClaim(Wirix::EthAddr mac) const;
  Found switchesClaim(Wirix::EthAddr mac, Number const* number) const;
  std::optional<Own> ownMac(Wirix::EthAddr mac);
  void mergeMac(Wirix::EthAddr mac, bool isEvpns);
  void mergeFlood(Wirix::EthAddr mac, Wirix::IpAddr vtep);
  void mergeMultipath(Wirix::EthAddr mac);
  std::optional<bool> isOn(Wirix::EthAddr mac, Wirix::IpAddr vtep) const;

  Controller& controller_;
  Orb::Ptr<VxlanController::VniFdbStatusV2> vniFdbStatus_;
  std::list<SourcePart> parts_;  ///< Few, and one access away.
  std::unique_ptr<VniLedger> earlier_;
  Orb::FlatMap<Wirix::EthAddr, Number> numbers_;
  std::uint32_t heard_ = 0;       ///< Order of what was heard last.
  EvpnStatusPtr formerFromEvpn_;  ///< While another takes its place.
  Orb::Input<OrbVniStatusFromEvpn> vniStatusFromEvpn_;
  Orb::Input<OrbFloodListFromEvpn> floodListFromEvpn_;
};

}  // namespace Agent
