#include "agent/explain/Why.h"

#include "agent/views/Format.h"

namespace Agent {

namespace {

using VxlanController::MacVtepV2;

/// The rules that hold for hosts and flood rows alike.
std::optional<Rule> stateRule(ExportState const& state) {
  if (!state.isEnabled) return Rule::databaseOff;
  if (!state.isCapable) return Rule::notCapable;
  if (!state.isServed) return Rule::notServed;
  return std::nullopt;
}

Rule ruleOf(HostFacts const& facts) {
  if (auto const rule = stateRule(facts.state)) return *rule;
  if (!facts.controller) return facts.isMultipath ? Rule::multipathOnly : Rule::notKnown;
  if (*facts.controller == MacVtepV2()) return Rule::defaultEntry;
  if (facts.evpn && *facts.evpn == *facts.controller) return Rule::evpnSupplied;
  return facts.isEarlier ? Rule::held : Rule::exported;
}

Rule ruleOf(FloodFacts const& facts) {
  if (auto const rule = stateRule(facts.state)) return *rule;
  if (!facts.controller) return facts.isInListOfOneMac ? Rule::notAllBum : Rule::notKnown;
  if (!*facts.controller) return Rule::entryOff;
  return facts.isEvpns ? Rule::evpnSupplied : Rule::exported;
}

std::string sentence(Rule rule) {
  switch (rule) {
    case Rule::databaseOff: return "Nothing is exported: the controller's database is not enabled.";
    case Rule::notCapable: return "Nothing is exported: EVPN is not capable.";
    case Rule::held:
      return "Exported as an earlier run left it: not every source has told all of its state yet.";
    case Rule::notServed: return "Not exported: no source of the controller serves the VNI.";
    case Rule::notKnown: return "Not exported: the controller has no such entry.";
    case Rule::multipathOnly: return "Not exported: the MAC is in the multipath table only.";
    case Rule::notAllBum: return "Not exported: the VTEP is in the flood list of a single MAC only.";
    case Rule::defaultEntry: return "Not exported: the entry equals the default one, which counts as absent.";
    case Rule::entryOff: return "Not exported: the flood list has the VTEP switched off.";
    case Rule::evpnSupplied: return "Not exported: EVPN supplied exactly this, and nothing is echoed.";
    case Rule::exported: return "Exported.";
  }
  return {};
}

std::vector<std::string_view> differencesOf(HostFacts const& facts) {
  std::vector<std::string_view> result;
  if (!facts.controller || !facts.evpn) return result;
  if (facts.controller->vtepAddr() != facts.evpn->vtepAddr()) result.push_back("vtep");
  if (facts.controller->seqNo() != facts.evpn->seqNo()) result.push_back("seq");
  if (facts.controller->preference() != facts.evpn->preference()) result.push_back("preference");
  return result;
}

/// Whether the exported row is the controller's entry.
bool isRowOf(QorEvpn::Host const& row, MacVtepV2 const& entry) {
  return row.vtepAddr() == entry.vtepAddr() && row.seqNo() == entry.seqNo() &&
         row.preference() == entry.preference();
}

}  // namespace

std::string_view toText(Rule rule) {
  switch (rule) {
    case Rule::databaseOff: return "database-off";
    case Rule::notCapable: return "not-capable";
    case Rule::held: return "held";
    case Rule::notServed: return "not-served";
    case Rule::notKnown: return "not-known";
    case Rule::multipathOnly: return "multipath-only";
    case Rule::notAllBum: return "not-all-bum";
    case Rule::defaultEntry: return "default-entry";
    case Rule::entryOff: return "entry-off";
    case Rule::evpnSupplied: return "evpn-supplied";
    case Rule::exported: return "exported";
  }
  return {};
}

Explanation explain(HostFacts const& facts) {
  Rule const rule = ruleOf(facts);
  bool const isWanted = rule == Rule::exported || rule == Rule::held;
  bool const isRight =
      facts.state.isKeeping || (isWanted ? facts.row && isRowOf(*facts.row, *facts.controller) : !facts.row);
  Explanation result{rule, sentence(rule), differencesOf(facts), isRight};
  if (isWanted && !result.differences.empty()) {
    result.text = "Exported: EVPN has the MAC too, but its entry differs.";
  }
  return result;
}

Explanation explain(FloodFacts const& facts) {
  Rule const rule = ruleOf(facts);
  bool const isRight = facts.state.isKeeping || facts.isRow == (rule == Rule::exported);
  return {rule, sentence(rule), {}, isRight};
}

nlohmann::ordered_json toJson(Explanation const& explanation) {
  return {{"rule", toText(explanation.rule)},
          {"text", explanation.text},
          {"differences", explanation.differences},
          {"asItShouldBe", explanation.isAsItShouldBe}};
}

}  // namespace Agent
