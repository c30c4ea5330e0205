#include "agent/commands/Verdict.h"

#include <algorithm>

#include "agent/views/Format.h"

namespace Agent {

namespace {

/// "3 of 65 rows, such as ...", or nothing.
class Faults {
 public:
  void add(auto const& row) {
    if (count_++ == 0) first_ = Orb::toText(row);
  }
  std::string text(std::string_view what) const {
    return count_ == 0 ? "" : countText(count_, "row") + " " + std::string(what) + ", such as " + first_;
  }

 private:
  std::size_t count_ = 0;
  std::string first_;
};

/// Those rows of one kind, or of any, of which `right` has the like, or has not.
template <class Row>
void compare(Faults& faults, SiteRows const& left, SiteRows const& right, bool like) {
  for (auto const& [key, row] : left.of<Row>()) {
    auto const found = right.of<Row>().find(key);
    if ((found != right.of<Row>().end() && found->second == row) == like) faults.add(row);
  }
}

Faults missing(SiteRows const& left, SiteRows const& right) {
  Faults faults;
  forEachKind([&]<class Row>(std::type_identity<Row>) { compare<Row>(faults, left, right, false); });
  return faults;
}

Faults common(SiteRows const& left, SiteRows const& right) {
  Faults faults;
  forEachKind([&]<class Row>(std::type_identity<Row>) { compare<Row>(faults, left, right, true); });
  return faults;
}

/// Those of the kinds that one side exports for the other to learn.
SiteRows exchanged(SiteRows rows) {
  forEachKind([&]<class Row>(std::type_identity<Row>) {
    if (!TableKind<Row>::isExported || !TableKind<Row>::isLearned) rows.of<Row>().clear();
  });
  return rows;
}

std::string counted(SiteRows const& rows) {
  std::string text;
  forEachKind([&]<class Row>(std::type_identity<Row>) {
    if (std::size_t const count = rows.of<Row>().size(); count != 0)
      text += (text.empty() ? "" : ", ") + countText(count, TableKind<Row>::noun);
  });
  return text.empty() ? "no rows" : text;
}

std::string both(std::string first, std::string const& second) {
  return first.empty() || second.empty() ? first + second : first + "; " + second;
}

void checkWay(std::vector<Check>& checks, SiteState const& from, SiteState const& to) {
  SiteRows const sent = exchanged(from.exported);
  std::string fault = missing(sent, to.learned).text("did not arrive");
  if (fault.empty() && to.evpnStatus != evpnStatusOf(sent)) fault = "the controller's status is another one";
  checks.push_back(
      {"every row that " + from.name + " exports has reached " + to.name + "'s controller", fault});
  checks.push_back({"nothing is left over at " + to.name + " that " + from.name + " does not export",
                    missing(exchanged(to.learned), sent).text("left over")});
  checks.push_back({"nothing is echoed: " + to.name + " exports no row that it learned",
                    common(to.learned, to.exported).text("echoed")});
}

}  // namespace

std::vector<Check> verdictOn(SiteState const& west, SiteState const& east, Expectation const& expected) {
  std::vector<Check> checks;
  checks.push_back({west.name + " exports exactly what is expected (" + counted(expected.exported) + ")",
                    both(missing(expected.exported, west.exported).text("missing"),
                         missing(west.exported, expected.exported).text("too many"))});
  checks.push_back({west.name + " imported exactly what is expected (" + counted(expected.learned) + ")",
                    west.evpnStatus == expected.evpnStatus
                        ? ""
                        : both("the controller's status is another one",
                               missing(expected.learned, west.learned).text("missing"))});
  checkWay(checks, west, east);
  checkWay(checks, east, west);
  return checks;
}

bool holds(std::vector<Check> const& checks) {
  return std::all_of(checks.begin(), checks.end(), [](Check const& check) { return check.fault.empty(); });
}

}  // namespace Agent
