#include "agent/views/SiteView.h"

#include <filesystem>
#include <fstream>

namespace Agent {

SiteView::SiteView(Site const& site) {
  forEachKind<EntryRows>([&]<class Row>(std::type_identity<Row>) {
    for (bool const learned : {false, true}) {
      if (!(learned ? TableKind<Row>::isLearned : TableKind<Row>::isExported)) continue;
      TablePlace const place = placeOf<Row>(learned);
      std::get<Both<Row>>(tables_).tables[learned].mount(
          {.directory = place.directory(site), .name = std::string(place.file)});
    }
  });
}

SiteRows SiteView::rowsOf(bool learned) {
  SiteRows rows;
  forEachKind<EntryRows>([&]<class Row>(std::type_identity<Row>) {
    Brine::Table<Row>& table = std::get<Both<Row>>(tables_).tables[learned];
    table.deliver();
    for (auto walk = table.walk(); Row const* const row = walk.next();) rows.add(*row);
  });
  rows.sort();
  return rows;
}

std::uint64_t SiteView::hosts(bool learned) {
  Brine::Table<QorEvpn::Host>& table = std::get<Both<QorEvpn::Host>>(tables_).tables[learned];
  table.deliver();
  return table.statistics().rows;
}

Expectation Expectation::ofFile(std::string const& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + ": cannot be read");
  try {
    auto const document = nlohmann::json::parse(file);
    Expectation result;
    forEachKind<EntryRows>([&]<class Row>(std::type_identity<Row>) {
      using Kind = TableKind<Row>;
      if (!Kind::isExported) return;
      for (nlohmann::json const& row : document.value(Kind::member, nlohmann::json::array()))
        result.exported.add(Kind::ofJson(row));
    });
    for (auto const& [vni, rows] : evpnStatusOf(document.at("evpnStatus"))) {
      for (QorEvpn::Host const& row : rows.hosts) result.learned.add(row);
      for (QorEvpn::FloodEntry const& row : rows.floods) result.learned.add(row);
    }
    result.exported.sort();
    result.learned.sort();
    return result;
  } catch (std::exception const& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

std::string dataFile(std::string const& name) {
  auto const program = std::filesystem::read_symlink("/proc/self/exe");
  auto const path = program.parent_path().parent_path() / "share" / "qorevpn" / name;
  if (!std::filesystem::exists(path)) throw std::runtime_error(path.string() + ": not found");
  return path.string();
}

}  // namespace Agent
