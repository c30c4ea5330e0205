#include "agent/audit/Audit.h"

#include <thread>

#include "VxlanController/ExpectedExport.h"
#include "agent/explain/Why.h"
#include "agent/live/SpeakerSide.h"
#include "agent/site/Control.h"

namespace Agent {

using namespace QorEvpn;
using Bridging::BridgeId;
using Kind = TableKind<BridgeId>;

namespace {

Judge<Host> hostJudge(SiteLook const& look) {
  auto const factsOf = [&look](Host const& row) {
    Vxlan::Vni const vni = row.key().vni();
    return hostFacts(row.key(), look.sides.own(vni), look.sides.theirs(vni), look.state);
  };
  auto const isSupplied = [factsOf](Host const& row) {
    auto const theirs = factsOf(row).evpn;
    return theirs && isRowOf(row, *theirs);
  };
  return {.unwanted =
              [=](Host const& row) {
                Rule const rule = explain(factsOf(row)).rule;
                return Blame{isSupplied(row) ? Fault::echoed : Fault::orphan, std::string(reasonOf(rule))};
              },
          .wanted = [](Host const&) { return "the controller has it, and nothing keeps it out"; },
          .isSupplied = isSupplied};
}

Judge<FloodEntry> floodJudge(SiteLook const& look) {
  auto const factsOf = [&look](FloodEntry const& row) {
    Vxlan::Vni const vni = row.key().vni();
    return floodFacts(row.key(), look.sides.own(vni), look.sides.theirs(vni), look.state);
  };
  return {
      .unwanted =
          [=](FloodEntry const& row) {
            FloodFacts const facts = factsOf(row);
            return Blame{facts.isEvpns ? Fault::echoed : Fault::orphan,
                         std::string(reasonOf(explain(facts).rule))};
          },
      .wanted = [](FloodEntry const&) { return "the controller floods to it, and nothing keeps it out"; }};
}

std::vector<BridgeId> expectedBridgeIds(ExpectedExport const& expected, SiteRows const& exported) {
  std::set<Vxlan::Vni> vnis = expected.brIds;
  for (Vxlan::Vni const vni : expected.brIdsOfHistory) vnis.erase(vni);
  for (BridgeId const row : exported.of<BridgeId>()) {
    if (row == BridgeId::ofVni(Kind::vni(row)) && expected.brIdsOfHistory.contains(Kind::vni(row)))
      vnis.insert(Kind::vni(row));
  }
  std::vector<BridgeId> result;
  for (Vxlan::Vni const vni : vnis) result.push_back(BridgeId::ofVni(vni));
  return result;
}

Judge<BridgeId> bridgeIdJudge(SiteLook const& look) {
  auto const unwanted = [&look](BridgeId row) {
    ExportState state = look.state;
    state.isServed = look.sides.own(Kind::vni(row));
    auto const rule = ruleOf(state);
    return Blame{Fault::orphan, rule ? std::string(reasonOf(*rule)) : "the VNI has no entries"};
  };
  return {.unwanted = unwanted, .wanted = [](BridgeId) { return "the VNI is served and has entries"; }};
}

void auditExported(Findings& findings, SiteLook const& look) {
  ExpectedExport expected;
  if (look.isOn()) expected = expectedExport(*look.sides.controller, *look.sides.evpn);
  std::ranges::sort(expected.hosts, shownBefore<Host>);
  std::ranges::sort(expected.floods, shownBefore<FloodEntry>);
  SiteRows const& found = look.exported;
  compareRows(findings, "exported/host", expected.hosts, found.of<Host>(), hostJudge(look));
  compareRows(findings, "exported/flood", expected.floods, found.of<FloodEntry>(), floodJudge(look));
  compareRows(findings, "exported/brId", expectedBridgeIds(expected, found), found.of<BridgeId>(),
              bridgeIdJudge(look));
}

SiteRows rowsOf(VxlanController::VniStatusDirV2 const& status) {
  SiteRows rows;
  for (auto const& [vni, each] : evpnStatusOf(status)) {
    for (Host const& row : each.hosts) rows.add(row);
    for (FloodEntry const& row : each.floods) rows.add(row);
  }
  return rows;
}

/// The imported rows must equal the rows of the learned table.
template <class Row>
void auditImported(Findings& findings, SiteLook const& look, SiteRows const& expected,
                   SiteRows const& found) {
  std::vector<Row> const& learned = look.learned.of<Row>();
  std::vector<Row> once = learned;
  auto const isSame = [](Row const& left, Row const& right) { return !shownBefore(left, right); };
  once.erase(std::unique(once.begin(), once.end(), isSame), once.end());
  compareRows(findings, placeOf<Row>(true).label(), once, learned);
  Judge<Row> const judge{.unwanted =
                             [&look](Row const&) {
                               auto const rule = ruleOf(look.state);
                               bool const isOff = rule && *rule != Rule::notServed;
                               return Blame{Fault::orphan, isOff ? std::string(reasonOf(*rule))
                                                                 : "the learned table has no such row"};
                             },
                         .wanted = [](Row const&) { return "the learned table has it"; }};
  compareRows<Row>(findings, std::string("evpn-status/").append(TableKind<Row>::file), expected.of<Row>(),
                   found.of<Row>(), judge);
}

/// Each exported row with a VTEP must have a route. Routes have no preference.
void auditAnnounced(Findings& findings, SiteLook const& look) {
  SiteRows expected;
  for (Host row : look.exported.of<Host>()) {
    row.preferenceIs(Host().preference());
    if (row.vtepAddr() != Wirix::IpAddr()) expected.add(row);
  }
  for (FloodEntry const& row : look.exported.of<FloodEntry>()) {
    if (row.key().vtepAddr() != Wirix::IpAddr()) expected.add(row);
  }
  forEachKind<EntryRows>([&]<class Row>(std::type_identity<Row>) {
    Judge<Row> const judge{.unwanted =
                               [](Row const&) {
                                 return Blame{Fault::orphan, "the site exports no such row"};
                               },
                           .wanted = [](Row const&) { return "the site exports it"; }};
    std::string const table = std::string("speaker/").append(TableKind<Row>::file);
    compareRows(findings, table, expected.of<Row>(), look.announced->of<Row>(), judge);
  });
}

/// Of an EVPN side in a process of its own; without sources if there is none, or if it does not answer.
nlohmann::ordered_json evpnState(SiteLook& look, Site const& site) {
  try {
    return controlRequest(site, "state", ControlSide::evpn);
  } catch (NotRunning const&) {
    // The agent may have the speaker.
  } catch (std::runtime_error const& error) {
    look.notLookedAt.try_emplace("EVPN side", error.what());
  }
  return {{"sources", nlohmann::ordered_json::array()}};
}

/// Takes the rows that the site's speaker announces, and notes the sources that cannot be looked at: without
/// a session a switch has no tables in the agent's answers, and a speaker is not asked.
void lookAtSources(SiteLook& look, Site const& site) {
  auto const lookAt = [&look](nlohmann::ordered_json const& source) {
    std::string const kind = source.at("kind"), state = source.at("state");
    if (kind == "speaker" && state == "synced" && source.value("sending", false)) {
      look.announced = announcedBy(source);
    } else if (kind == "speaker") {
      look.notLookedAt.try_emplace("speaker " + source.at("endpoint").get<std::string>(),
                                   state == "synced" ? "announces nothing yet" : state);
    } else if (kind == "switch" && state != "synced") {
      look.notLookedAt.try_emplace("switch " + source.at("name").get<std::string>(), state);
    }
  };
  auto const agent = controlRequest(site, "state"), evpn = evpnState(look, site);
  for (auto const* const state : {&agent, &evpn}) {
    for (auto const& source : state->at("sources")) lookAt(source);
  }
}

}  // namespace

SiteRows SiteLook::imported() const { return rowsOf(*sides.evpn); }

Findings audit(SiteLook const& look) {
  Findings findings;
  if (!look.isKept) auditExported(findings, look);
  SiteRows expected;
  if (look.isOn())
    expected = rowsOf(*expectedLearned(look.learned.of<Host>(), look.learned.of<FloodEntry>()));
  SiteRows const imported = look.imported();
  auditImported<Host>(findings, look, expected, imported);
  auditImported<FloodEntry>(findings, look, expected, imported);
  for (RemoteTable const& table : look.remoteTables)
    table.audit(findings, look.sides.own(table.vni), look.isSettled);
  if (look.announced) auditAnnounced(findings, look);
  return findings;
}

namespace {

using Vnis = std::optional<std::set<Vxlan::Vni>>;

/// The agent's answers; the tables are not read yet.
SiteLook ask(Site const& site, Vnis const& wanted) {
  auto const head = controlRequest(site, "both-sides");
  SiteLook look;
  look.state.isEnabled = head.at("enabled");
  look.state.isCapable = head.at("capability");
  look.isKept = head.at("kept");
  if (look.isKept)
    look.notLookedAt.try_emplace("exported tables", "they stay as they were until sources tell what is on");
  look.isSettled = head.at("settled");
  for (auto const& each : head.at("vnis")) {
    Vxlan::Vni const vni(each.get<std::uint32_t>());
    if (wanted && !wanted->contains(vni)) continue;
    auto const document = controlRequest(site, "both-sides " + Orb::toText(vni));
    look.sides.take(vni, document);
    std::ranges::move(RemoteTable::ofJson(vni, document.value("switches", nlohmann::ordered_json::array())),
                      std::back_inserter(look.remoteTables));
  }
  return look;
}

/// Keeps the findings of the wanted VNIs.
SiteRows read(SiteRows rows, Vnis const& wanted) {
  if (!wanted) return rows;
  forEachKind<EntryRows>([&]<class Row>(std::type_identity<Row>) {
    std::erase_if(rows.of<Row>(),
                  [&](Row const& row) { return !wanted->contains(TableKind<Row>::vni(row)); });
  });
  return rows;
}

}  // namespace

SiteLook lookAt(Site const& site) {
  SiteLook look = ask(site, std::nullopt);
  SiteView view(site);
  look.exported = view.exported();
  look.learned = view.learned();
  lookAtSources(look, site);
  return look;
}

SiteAudit auditSite(Site const& site, std::chrono::milliseconds pause) {
  SiteLook first = lookAt(site);
  Findings findings = audit(first);
  if (findings.empty()) return {{}, std::move(first.notLookedAt)};
  std::set<Vxlan::Vni> vnis;
  for (Finding const& each : findings) vnis.insert(each.vni);
  std::this_thread::sleep_for(pause);
  SiteLook before = ask(site, vnis);
  SiteView view(site);
  before.exported = read(view.exported(), vnis);
  before.learned = read(view.learned(), vnis);
  lookAtSources(before, site);
  if (before.announced) before.announced = read(std::move(*before.announced), vnis);
  findings = common(findings, audit(before));
  SiteLook after = ask(site, vnis);
  after.exported = std::move(before.exported);
  after.learned = std::move(before.learned);
  after.announced = std::move(before.announced);
  for (SiteLook* const look : {&before, &after}) first.notLookedAt.merge(look->notLookedAt);
  return {common(findings, audit(after)), std::move(first.notLookedAt)};
}

}  // namespace Agent
