#include "agent/audit/Findings.h"

namespace Agent {

std::string_view toText(Fault fault) {
  switch (fault) {
    case Fault::missing: return "missing";
    case Fault::orphan: return "orphan";
    case Fault::stale: return "stale";
    case Fault::echoed: return "echoed";
    case Fault::duplicate: return "duplicate";
  }
  return {};
}

namespace {

/// What the rest of a key is called.
std::string_view memberOf(std::string const& address) {
  return address.find(':') == std::string::npos ? "vtep" : "mac";
}

}  // namespace

void appendText(std::string& out, Finding const& finding) {
  Orb::appendTexts(out, finding.table, "  vni ", finding.vni);
  if (!finding.address.empty()) Orb::appendTexts(out, "  ", memberOf(finding.address), " ", finding.address);
  Orb::appendTexts(out, ": ", toText(finding.fault), ": ", finding.reason);
}

nlohmann::ordered_json toJson(Finding const& finding) {
  nlohmann::ordered_json object = {{"table", finding.table}, {"vni", finding.vni.value()}};
  if (!finding.address.empty()) object[std::string(memberOf(finding.address))] = finding.address;
  object["fault"] = toText(finding.fault);
  object["reason"] = finding.reason;
  return object;
}

Findings common(Findings const& findings, Findings const& others) {
  std::set<Finding> const known(others.begin(), others.end());
  Findings result;
  std::ranges::copy_if(findings, std::back_inserter(result),
                       [&](Finding const& each) { return known.contains(each); });
  return result;
}

void compareRows(Findings& findings, std::string_view folder, SiteRows const& expected,
                 SiteRows const& found) {
  forEachKind<EntryRows>([&]<class Row>(std::type_identity<Row>) {
    std::string table(folder);
    table.append("/").append(TableKind<Row>::file);
    compareRows<Row>(findings, table, expected.of<Row>(), found.of<Row>());
  });
}

}  // namespace Agent
