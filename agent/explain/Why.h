/// Explains why a MAC or a flood-list VTEP is exported or not: gives the rule that decides, from the entries
/// of both sides.
///
/// All functions are pure. The caller collects the facts: a running agent takes them from the inputs of its
/// machines, a test makes them up.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DataModel/MacVtepV2.h"
#include "DataModel/VniFdbStatusV2.h"
#include "DataModel/VniStatusV2.h"
#include "VxlanController/QorEvpnBrine.h"

namespace Agent {

/// The rules, in the order in which they are tried: the first one that applies decides.
enum class Rule {
  databaseOff,     ///< The integration is off: the controller's database is not enabled.
  notCapable,      ///< The integration is off: EVPN is not capable.
  notServed,       ///< No source of the controller serves the VNI.
  refused,         ///< The entry that a source told is invalid: a group MAC, VTEP 0.0.0.0.
  notKnown,        ///< The controller has no entry of the MAC; or its flood list has no such VTEP.
  multipathOnly,   ///< The MAC, or the VTEP, is in the multipath table only, which is not exported.
  notAllBum,       ///< The VTEP is in the list of one MAC only; lists for all BUM traffic alone are exported.
  defaultEntry,    ///< The entry equals the default one, which counts as absent.
  entryOff,        ///< The flood list has the VTEP switched off.
  frozen,          ///< The MAC is a duplicate and is frozen: the entry of the other site stays in force.
  evpnNewer,       ///< EVPN's entry has a higher sequence number than the sources', and is not echoed.
  evpnSwitchedOn,  ///< The sources have the VTEP off, EVPN has it on, which counts; it is not echoed.
  evpnSupplied,    ///< EVPN supplied exactly this entry, or this VTEP; it is not echoed.
  held,            ///< Exported as an earlier run left it, until the flags and every source's state are told.
  exported         ///< No other rule applies.
};

/// The rule's name for programs: "evpn-supplied".
std::string_view toText(Rule rule);
/// The rule as a phrase for people; it follows "Not exported: ".
std::string_view reasonOf(Rule rule);

/// The state of the site and of the VNI, on which the first rules depend.
struct ExportState {
  bool isEnabled = false;
  bool isCapable = false;
  bool isKeeping = false;  ///< Rows of an earlier run are kept now.
  bool isServed = false;
};

struct HostFacts {
  QorEvpn::MacVniPair key;
  ExportState state;
  std::optional<VxlanController::MacVtepV2> controller;  ///< Merged, as the machines read it.
  std::optional<VxlanController::MacVtepV2> evpn;        ///< As the receive machine stored it.
  bool isMultipath = false;                              ///< In the controller's multipath table.
  bool isOvertaken = false;                              ///< A source has an older entry than EVPN.
  bool isEarlier = false;                                ///< The controller's entry is an earlier run's.
  bool isFrozen = false;                                 ///< A switch has the MAC while it is frozen.
  std::string_view refusal;                              ///< Why a source's entry was refused.
  std::optional<QorEvpn::Host> row;                      ///< In the exported table.
};

struct FloodFacts {
  QorEvpn::VniVtepPair key;
  ExportState state;
  std::optional<bool> controller;  ///< In the list for all BUM traffic: on or off.
  bool isInListOfOneMac = false;   ///< In the list of another MAC.
  bool isEvpns = false;            ///< In EVPN's list for all BUM traffic.
  bool isRow = false;              ///< In the exported table.
  bool isEarlier = false;          ///< In the controller's list only as an earlier run left it.
  bool isMultipath = false;        ///< In the controller's multipath entry for all BUM traffic.
  bool isOffHere = false;          ///< The controller's sources have it switched off, without EVPN's entry.
};

/// The facts that follow from the inputs of the machines. Either status may be null. `state` is the site's.
HostFacts hostFacts(QorEvpn::MacVniPair const& key, VxlanController::VniFdbStatusV2 const* own,
                    VxlanController::VniStatusV2 const* theirs, ExportState state);
FloodFacts floodFacts(QorEvpn::VniVtepPair const& key, VxlanController::VniFdbStatusV2 const* own,
                      VxlanController::VniStatusV2 const* theirs, ExportState state);

struct Explanation {
  Rule rule;
  std::string text;  ///< One sentence for people.
  /// Fields in which the two sides' entries differ: "vtep", "seq", "preference". Empty where one has none.
  std::vector<std::string_view> differences;
  /// Whether the table agrees with the rule; always true while rows of an earlier run are kept.
  bool isAsItShouldBe;
};

/// The rule that holds for every row of a VNI, if one does.
std::optional<Rule> ruleOf(ExportState const& state);
/// Whether the exported row is that entry.
bool isRowOf(QorEvpn::Host const& row, VxlanController::MacVtepV2 const& entry);
Explanation explain(HostFacts const& facts);
Explanation explain(FloodFacts const& facts);

/// Why the bridge identifier of a VNI that is not in the list is not there. `own` may be null.
std::string_view unlistedText(ExportState state, VxlanController::VniFdbStatusV2 const* own);

/// Why EVPN's row of a key was imported to the controller or not.
enum class ImportRule {
  off,         ///< The integration is off.
  unreadable,  ///< The agent cannot read the learned table, or there is none.
  defaultRow,  ///< A row of this key that equals the default one counts as absent.
  notLearned,  ///< The learned table has no such row.
  imported     ///< No other rule applies.
};
std::string_view toText(ImportRule rule);
/// "EVPN's table has no such row"
std::string_view reasonOf(ImportRule rule);

/// `row`: the row in the learned table, or the default row if there is none. `isReadable`: the agent can read
/// that table.
template <class Row>
ImportRule importRule(ExportState const& state, bool isReadable, Row const& row,
                      typename Brine::Codec<Row>::Key const& key) {
  if (!state.isEnabled || !state.isCapable) return ImportRule::off;
  if (!isReadable) return ImportRule::unreadable;
  if (row != Row()) return ImportRule::imported;
  return key == Brine::Codec<Row>::key(Row()) ? ImportRule::defaultRow : ImportRule::notLearned;
}

/// The subject of a question: "MAC", "MAC VNI" or "VTEP VNI".
struct Subject {
  std::optional<Wirix::EthAddr> mac;
  Wirix::IpAddr vtep;  ///< If there is no MAC.
  std::optional<Vxlan::Vni> vni;

  /// Raises Orb::Error, or std::runtime_error for a VTEP without VNI.
  static Subject parse(std::string_view text);
};

/// {"rule": "evpn-supplied", "text": "..", "differences": ["vtep"], "asItShouldBe": true}
nlohmann::ordered_json toJson(Explanation const& explanation);

}  // namespace Agent
