#include "agent/commands/Verdict.h"

#include <algorithm>

#include "agent/views/Format.h"

namespace Agent {

namespace {

/// "3 rows, such as ...", or nothing.
std::string textOf(Findings const& findings) {
  return findings.empty() ? ""
                          : countText(findings.size(), "row") + ", such as " + Orb::toText(findings.front());
}

/// The rows of what one site exports and another one learns.
SiteRows exchanged(SiteRows rows) {
  rows.of<Bridging::BridgeId>().clear();
  return rows;
}

std::string counted(SiteRows const& rows) {
  std::string text;
  forEachKind<EntryRows>([&]<class Row>(std::type_identity<Row>) {
    if (std::size_t const count = rows.of<Row>().size(); count != 0)
      text += (text.empty() ? "" : ", ") + countText(count, TableKind<Row>::noun);
  });
  return text.empty() ? "no rows" : text;
}

void checkSite(std::vector<Check>& checks, SiteState const& site) {
  Findings other = audit(site.look), echoed;
  std::ranges::copy_if(other, std::back_inserter(echoed),
                       [](Finding const& each) { return each.fault == Fault::echoed; });
  std::erase_if(other, [](Finding const& each) { return each.fault == Fault::echoed; });
  checks.push_back({"nothing is echoed: " + site.name + " exports no row that it learned", textOf(echoed)});
  checks.push_back(
      {"every other row of " + site.name + " is what its controller and EVPN make of it", textOf(other)});
}

void checkWay(std::vector<Check>& checks, SiteState const& from, SiteState const& to) {
  Findings missing, leftOver;
  compareRows(missing, to.name + "'s learned", exchanged(from.look.exported), to.look.learned);
  std::ranges::copy_if(missing, std::back_inserter(leftOver),
                       [](Finding const& each) { return each.fault == Fault::orphan; });
  std::erase_if(missing, [](Finding const& each) { return each.fault == Fault::orphan; });
  checks.push_back({"every row that " + from.name + " exports has reached " + to.name, textOf(missing)});
  checks.push_back(
      {"nothing is left over at " + to.name + " that " + from.name + " does not export", textOf(leftOver)});
}

}  // namespace

std::vector<Check> verdictOn(SiteState const& west, SiteState const& east, Expectation const& expected) {
  std::vector<Check> checks;
  auto const checkExpected = [&](std::string const& folder, SiteRows const& wanted, SiteRows const& found) {
    Findings findings;
    compareRows(findings, folder, wanted, found);
    checks.push_back(
        {west.name + " " + folder + " exactly what is expected (" + counted(wanted) + ")", textOf(findings)});
  };
  checkExpected("exports", expected.exported, west.look.exported);
  checkExpected("imported", expected.learned, west.look.imported());
  checkWay(checks, west, east);
  checkWay(checks, east, west);
  checkSite(checks, west);
  checkSite(checks, east);
  return checks;
}

bool holds(std::vector<Check> const& checks) {
  return std::all_of(checks.begin(), checks.end(), [](Check const& check) { return check.fault.empty(); });
}

}  // namespace Agent
