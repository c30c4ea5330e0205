#include "agent/tables/Tables.h"

#include "agent/base/UsageError.h"

namespace Agent {

std::vector<TablePlace> allTables() {
  std::vector<TablePlace> places;
  for (bool const learned : {false, true}) {
    forEachKind([&]<class Row>(std::type_identity<Row>) {
      using Kind = TableKind<Row>;
      if (learned ? Kind::isLearned : Kind::isExported) places.push_back(placeOf<Row>(learned));
    });
  }
  return places;
}

std::vector<std::string> tableWords() {
  std::vector<std::string> words;
  forEachKind([&]<class Row>(std::type_identity<Row>) { words.emplace_back(TableKind<Row>::word); });
  return words;
}

TablePlace placeOf(std::string_view word, bool learned, RowFilter const& filter) {
  TablePlace place{};
  forEachKind([&]<class Row>(std::type_identity<Row>) {
    using Kind = TableKind<Row>;
    if (Kind::word != word) return;
    std::string const nouns = std::string(Kind::noun) + "s";
    if (learned && !Kind::isLearned) throw UsageError("--learned: the EVPN side keeps no " + nouns);
    place = placeOf<Row>(learned || !Kind::isExported);
    if (!filter.vnis.empty() && !HasVni<Row>) throw UsageError("--vni: " + nouns + " have no VNIs");
    if (!filter.macs.empty() && !HasMac<Row>) throw UsageError("--mac: " + nouns + " have no MAC addresses");
    if (!filter.vteps.empty() && !HasVtep<Row>) throw UsageError("--vtep: " + nouns + " have no VTEPs");
  });
  return place;
}

std::string explain(Brine::TableBase const& table, TablePlace const& place) {
  using Brine::MountStatus;
  std::string const who = place.learned ? "the EVPN side" : "the agent";
  std::string const where = table.options().directory + "/" + table.options().name;
  std::string const& detail = table.mountDetail();
  switch (table.mountStatus()) {
    case MountStatus::mounted: return {};
    case MountStatus::unmounted: return where + " is not mounted";
    case MountStatus::writerGone:
      return who + " that writes " + where + " is not running; its rows stay as it left them";
    case MountStatus::noTable:
      return "there is no table " + where + ": " + who + " has not run there, or --dir is another";
    case MountStatus::notPermitted:
      return where + " may not be read: " + detail + "; its readers are its directory's group";
    case MountStatus::incompatible: return where + " is of another version of this program: " + detail;
    case MountStatus::corrupt: return where + " is damaged: " + detail;
    default: break;
  }
  return std::string(where)
      .append(": ")
      .append(Brine::toText(table.mountStatus()))
      .append(": ")
      .append(detail);
}

void requireReadable(Brine::TableBase const& table, TablePlace const& place) {
  if (!Brine::isReadable(table.mountStatus())) throw std::runtime_error(explain(table, place));
}

}  // namespace Agent
