#include "agent/explain/Why.h"

#include <algorithm>

#include "Orb/Text.h"
#include "VxlanController/ExpectedExport.h"
#include "agent/feed/Sources.h"

namespace Agent {

using VxlanController::MacVtepFloodListV2;
using VxlanController::MacVtepV2;
using VxlanController::VniFdbStatusV2;
using VxlanController::VniStatusV2;

std::optional<Rule> ruleOf(ExportState const& state) {
  if (!state.isEnabled) return Rule::databaseOff;
  if (!state.isCapable) return Rule::notCapable;
  if (!state.isServed) return Rule::notServed;
  return std::nullopt;
}

bool isRowOf(QorEvpn::Host const& row, MacVtepV2 const& entry) {
  return row.vtepAddr() == entry.vtepAddr() && row.seqNo() == entry.seqNo() &&
         row.preference() == entry.preference();
}

namespace {

template <class Status>
std::optional<MacVtepV2> entryOf(Status const* status, Wirix::EthAddr mac) {
  MacVtepV2 const* const entry = status ? status->macVtepTable().find(mac) : nullptr;
  return entry ? std::optional(*entry) : std::nullopt;
}

/// The VTEP's value in a list, or nothing where it is not in it.
std::optional<bool> valueIn(Orb::Ptr<MacVtepFloodListV2> const& list, Wirix::IpAddr vtep) {
  bool const* const value = list ? list->vtepIpFloodList().find(vtep) : nullptr;
  return value ? std::optional(*value) : std::nullopt;
}

}  // namespace

HostFacts hostFacts(QorEvpn::MacVniPair const& key, VniFdbStatusV2 const* own, VniStatusV2 const* theirs,
                    ExportState state) {
  state.isServed = own != nullptr;
  HostFacts facts;
  facts.key = key;
  facts.state = state;
  facts.controller = entryOf(own, key.macAddr());
  facts.evpn = entryOf(theirs, key.macAddr());
  facts.isMultipath = own && own->macVtepMultiPathTable().contains(key.macAddr());
  return facts;
}

FloodFacts floodFacts(QorEvpn::VniVtepPair const& key, VniFdbStatusV2 const* own, VniStatusV2 const* theirs,
                      ExportState state) {
  Wirix::EthAddr constexpr allBum = MacVtepFloodListV2::allBum;
  state.isServed = own != nullptr;
  FloodFacts facts;
  facts.key = key;
  facts.state = state;
  facts.isEvpns = theirs && valueIn(theirs->macVtepFloodListTable(allBum), key.vtepAddr());
  if (!own) return facts;
  auto const* const paths = own->macVtepMultiPathTable().find(allBum);
  facts.isMultipath = paths && std::ranges::find(paths->vtepAddrs, key.vtepAddr()) != paths->vtepAddrs.end();
  facts.controller = valueIn(own->macVtepFloodListTable(allBum), key.vtepAddr());
  for (auto const& list : own->macVtepFloodListTable()) {
    if (list.key != allBum && valueIn(list.value, key.vtepAddr())) facts.isInListOfOneMac = true;
  }
  return facts;
}

namespace {

/// Why a source's entry of the key was refused, or would be whatever its VTEP is; or nothing.
std::string_view refusal(HostFacts const& facts) {
  if (!facts.refusal.empty()) return facts.refusal;
  Event event;
  event.op = Op::mac;
  event.mac = facts.key.macAddr();
  event.vtep = Wirix::IpAddr(1);
  return refusalOf(event);
}

std::string_view refusal(FloodFacts const& facts) {
  Event event;
  event.op = Op::flood;
  event.vtep = facts.key.vtepAddr();
  return refusalOf(event);
}

/// A row of an earlier run stays, whatever rule keeps it out, until the state has been told.
Rule unlessHeld(Rule rule, ExportState const& state, bool isRow) {
  return state.isKeeping && isRow && rule != Rule::exported ? Rule::held : rule;
}

Rule ruleOf(HostFacts const& facts) {
  auto const rule = ruleOf(facts.state);
  if (rule == Rule::notServed && !facts.refusal.empty()) return Rule::refused;
  if (rule) return *rule;
  if (!facts.controller && facts.isMultipath) return Rule::multipathOnly;
  if (!facts.controller) return refusal(facts).empty() ? Rule::notKnown : Rule::refused;
  if (*facts.controller == MacVtepV2()) return Rule::defaultEntry;
  if (facts.evpn && *facts.evpn == *facts.controller) {
    if (!facts.isOvertaken) return Rule::evpnSupplied;
    return facts.isFrozen ? Rule::frozen : Rule::evpnNewer;
  }
  return facts.isEarlier ? Rule::held : Rule::exported;
}

Rule ruleOf(FloodFacts const& facts) {
  if (auto const rule = ruleOf(facts.state)) return *rule;
  if (!facts.controller && facts.isMultipath) return Rule::multipathOnly;
  if (!facts.controller && facts.isInListOfOneMac) return Rule::notAllBum;
  if (!facts.controller) return refusal(facts).empty() ? Rule::notKnown : Rule::refused;
  if (!*facts.controller) return Rule::entryOff;
  if (facts.isEvpns) return facts.isOffHere ? Rule::evpnSwitchedOn : Rule::evpnSupplied;
  return facts.isEarlier ? Rule::held : Rule::exported;
}

std::string sentence(Rule rule) {
  if (rule == Rule::exported) return "Exported.";
  std::string_view const outcome = rule == Rule::held ? "Exported" : "Not exported";
  return std::string(outcome).append(": ").append(reasonOf(rule)).append(".");
}

std::string refusedText(std::string_view cause) {
  std::string text = sentence(Rule::refused);
  text.pop_back();
  return text.append(": ").append(cause).append(".");
}

std::vector<std::string_view> differencesOf(HostFacts const& facts) {
  std::vector<std::string_view> result;
  if (!facts.controller || !facts.evpn) return result;
  if (facts.controller->vtepAddr() != facts.evpn->vtepAddr()) result.push_back("vtep");
  if (facts.controller->seqNo() != facts.evpn->seqNo()) result.push_back("seq");
  if (facts.controller->preference() != facts.evpn->preference()) result.push_back("preference");
  return result;
}

}  // namespace

std::string_view toText(Rule rule) {
  switch (rule) {
    case Rule::databaseOff: return "database-off";
    case Rule::notCapable: return "not-capable";
    case Rule::held: return "held";
    case Rule::notServed: return "not-served";
    case Rule::refused: return "refused";
    case Rule::notKnown: return "not-known";
    case Rule::multipathOnly: return "multipath-only";
    case Rule::notAllBum: return "not-all-bum";
    case Rule::defaultEntry: return "default-entry";
    case Rule::entryOff: return "entry-off";
    case Rule::frozen: return "frozen";
    case Rule::evpnNewer: return "evpn-newer";
    case Rule::evpnSwitchedOn: return "evpn-switched-on";
    case Rule::evpnSupplied: return "evpn-supplied";
    case Rule::exported: return "exported";
  }
  return {};
}

std::string_view reasonOf(Rule rule) {
  switch (rule) {
    case Rule::databaseOff: return "the integration is off, since the controller's database is not enabled";
    case Rule::notCapable: return "the integration is off, since EVPN is not capable";
    case Rule::held: return "an earlier run left it so, and not every source has told all of its state yet";
    case Rule::notServed: return "no source of the controller serves the VNI";
    case Rule::refused: return "such an entry is refused, since it cannot be";
    case Rule::notKnown: return "the controller has no such entry";
    case Rule::multipathOnly: return "it is in the multipath table only";
    case Rule::notAllBum: return "the VTEP is in the flood list of a single MAC only";
    case Rule::defaultEntry: return "the entry equals the default one, which counts as absent";
    case Rule::entryOff: return "the flood list has the VTEP switched off";
    case Rule::frozen: return "the MAC moved too often, and is frozen: it is left to the other site";
    case Rule::evpnNewer:
      return "EVPN's entry has a higher sequence number than the sources', and nothing is echoed";
    case Rule::evpnSwitchedOn:
      return "EVPN's entry switches on the VTEP that the sources have off, and nothing is echoed";
    case Rule::evpnSupplied: return "EVPN supplied exactly this, and nothing is echoed";
    case Rule::exported: return "nothing keeps it out";
  }
  return {};
}

Explanation explain(HostFacts const& facts) {
  Rule const rule = unlessHeld(ruleOf(facts), facts.state, facts.row.has_value());
  bool const isWanted = rule == Rule::exported || rule == Rule::held;
  bool const isRight =
      facts.state.isKeeping || (isWanted ? facts.row && isRowOf(*facts.row, *facts.controller) : !facts.row);
  Explanation result{rule, sentence(rule), differencesOf(facts), isRight};
  if (rule == Rule::refused) result.text = refusedText(refusal(facts));
  if (rule == Rule::exported && !result.differences.empty()) {
    result.text = "Exported: EVPN has the MAC too, but its entry differs.";
  }
  return result;
}

Explanation explain(FloodFacts const& facts) {
  Rule const rule = unlessHeld(ruleOf(facts), facts.state, facts.isRow);
  bool const isRight = facts.state.isKeeping || facts.isRow == (rule == Rule::exported || rule == Rule::held);
  std::string text = rule == Rule::refused ? refusedText(refusal(facts)) : sentence(rule);
  return {rule, std::move(text), {}, isRight};
}

nlohmann::ordered_json toJson(Explanation const& explanation) {
  return {{"rule", toText(explanation.rule)},
          {"text", explanation.text},
          {"differences", explanation.differences},
          {"asItShouldBe", explanation.isAsItShouldBe}};
}

std::string_view unlistedText(ExportState state, VniFdbStatusV2 const* own) {
  state.isServed = own != nullptr;
  if (auto const rule = ruleOf(state)) return reasonOf(*rule);
  if (!QorEvpn::hasEntries(*own)) return "the VNI has no entries";
  if (QorEvpn::hasSupportedEntries(*own)) return "not all of EVPN's rows have been read yet";
  return "a multipath entry or a flood list of a single MAC alone does not list it";
}

std::string_view toText(ImportRule rule) {
  switch (rule) {
    case ImportRule::off: return "off";
    case ImportRule::unreadable: return "unreadable";
    case ImportRule::defaultRow: return "default-row";
    case ImportRule::notLearned: return "not-learned";
    case ImportRule::imported: return "imported";
  }
  return {};
}

std::string_view reasonOf(ImportRule rule) {
  switch (rule) {
    case ImportRule::off: return "nothing is imported while the integration is off";
    case ImportRule::unreadable: return "the agent cannot read the learned table, or there is none";
    case ImportRule::defaultRow: return "a row that equals the default one counts as absent";
    case ImportRule::notLearned: return "the learned table has no such row";
    case ImportRule::imported: return "imported";
  }
  return {};
}

Subject Subject::parse(std::string_view text) {
  auto const blank = text.find(' ');
  std::string_view const first = text.substr(0, blank);
  Subject subject;
  if (blank != std::string_view::npos) subject.vni = Orb::parseWhole<Vxlan::Vni>(text.substr(blank + 1));
  if (first.find(':') != std::string_view::npos) {
    subject.mac = Orb::parseWhole<Wirix::EthAddr>(first);
  } else {
    subject.vtep = Orb::parseWhole<Wirix::IpAddr>(first);
    if (!subject.vni) throw std::runtime_error("a VTEP is in the flood list of a VNI: which one?");
  }
  return subject;
}

}  // namespace Agent
