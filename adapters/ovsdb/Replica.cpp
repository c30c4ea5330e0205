#include "adapters/ovsdb/Replica.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

#include "Orb/Text.h"

namespace Ovsdb {

namespace {

constexpr std::array<std::string_view, 4> macTables = {"Ucast_Macs_Local", "Mcast_Macs_Local",
                                                       "Ucast_Macs_Remote", "Mcast_Macs_Remote"};

/// The columns that are needed, by table.
std::map<std::string, std::vector<std::string>> const& columnsAsked() {
  static std::map<std::string, std::vector<std::string>> const result = {
      {"Logical_Switch", {"tunnel_key", "replication_mode"}},
      {"Physical_Locator", {"encapsulation_type", "dst_ip", "tunnel_key"}},
      {"Physical_Locator_Set", {"locators"}},
      {"Physical_Switch", {"tunnel_ips"}},
      {"Ucast_Macs_Local", {"MAC", "logical_switch", "locator"}},
      {"Mcast_Macs_Local", {"MAC", "logical_switch", "locator_set"}},
      {"Ucast_Macs_Remote", {"MAC", "logical_switch", "locator"}},
      {"Mcast_Macs_Remote", {"MAC", "logical_switch", "locator_set"}},
  };
  return result;
}

/// The values of a column: the elements of a set, or a single value.
std::vector<Json> atoms(Json const& row, char const* column) {
  Json const& value = row.at(column);
  if (value.is_array() && value.size() == 2 && value[0] == "set") return value[1].get<std::vector<Json>>();
  return {value};
}

std::string stringOf(Json const& row, char const* column) { return row.at(column).get<std::string>(); }

Uuid uuidOf(Json const& atom) {
  if (!atom.is_array() || atom.size() != 2 || atom[0] != "uuid") throw RowError(atom.dump() + " is no UUID");
  return Uuid::parse(atom[1].get<std::string>());
}

template <class Address>
std::optional<Address> parsed(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  try {
    return Orb::parseWhole<Address>(text);
  } catch (Orb::Error const&) {
    return std::nullopt;
  }
}

bool isGroup(Wirix::EthAddr mac) { return (mac.word(0) & 0x100) != 0; }

bool isRemote(MacTable table) { return table == MacTable::ucastRemote || table == MacTable::mcastRemote; }
bool isUnicast(MacTable table) { return table == MacTable::ucastLocal || table == MacTable::ucastRemote; }

}  // namespace

std::string_view nameOf(MacTable table) { return macTables[static_cast<std::size_t>(table)]; }

Uuid Uuid::parse(std::string_view text) {
  std::string digits;
  for (char const c : text) {
    if (c != '-') digits += c;
  }
  Uuid result;
  char const* const begin = digits.data();
  if (digits.size() != 32 || std::from_chars(begin, begin + 16, result.high, 16).ptr != begin + 16 ||
      std::from_chars(begin + 16, begin + 32, result.low, 16).ptr != begin + 32) {
    throw RowError("'" + std::string(text) + "' is no UUID");
  }
  return result;
}

std::string Uuid::text() const {
  std::array<char, 37> out;
  std::snprintf(out.data(), out.size(), "%08x-%04x-%04x-%04x-%012llx", static_cast<unsigned>(high >> 32),
                static_cast<unsigned>(high >> 16 & 0xFFFF), static_cast<unsigned>(high & 0xFFFF),
                static_cast<unsigned>(low >> 48), static_cast<unsigned long long>(low & 0xFFFFFFFFFFFF));
  return out.data();
}

Json Replica::monitorRequests() {
  Json result = Json::object();
  for (auto const& [table, columns] : columnsAsked()) result[table] = {{"columns", columns}};
  return result;
}

std::string Replica::missing(std::map<std::string, Json> const& columns) {
  for (auto const& [table, asked] : columnsAsked()) {
    auto const found = columns.find(table);
    if (found == columns.end()) return "table " + table;
    for (std::string const& column : asked) {
      if (!found->second.contains(column)) return "column " + column + " of table " + table;
    }
  }
  return {};
}

void Replica::take(std::string const& table, std::string const& member) {
  Json const row = Json::parse('{' + member + '}');
  if (row.size() != 1) throw RowError("table " + table + ": not one row");
  std::string const& id = row.begin().key();
  Json const& update = row.begin().value();
  try {
    Uuid const uuid = Uuid::parse(id);
    if (!update.is_object()) throw RowError(update.dump() + " is no row");
    if (auto const fault = faults_.find(uuid); fault != faults_.end()) {
      if (--leftOut_[fault->second] == 0) leftOut_.erase(fault->second);
      faults_.erase(fault);
    }
    Json const* const now = update.contains("new") ? &update.at("new") : nullptr;
    auto const macTable = std::find(macTables.begin(), macTables.end(), table);
    if (macTable != macTables.end()) return takeMac(MacTable(macTable - macTables.begin()), uuid, now);
    if (table == "Logical_Switch") return takeLogicalSwitch(uuid, now);
    if (table == "Physical_Locator") return takeLocator(uuid, now);
    if (table == "Physical_Locator_Set") return takeLocatorSet(uuid, now);
    if (table == "Physical_Switch") return takePhysicalSwitch(uuid, now);
  } catch (std::exception const& error) {
    throw RowError("table " + table + ", row " + id + ": " + error.what());
  }
}

void Replica::takeLogicalSwitch(Uuid const& id, Json const* row) {
  LogicalSwitch now;
  if (row != nullptr) {
    for (Json const& key : atoms(*row, "tunnel_key")) {
      if (auto const number = key.get<std::int64_t>(); number >= 0 && number <= Vxlan::Vni::max) {
        now.vni = Vxlan::Vni(static_cast<std::uint64_t>(number));
      } else {
        refuse(id, "logical switch whose tunnel_key is no VNI",
               "Logical_Switch " + id.text() + ": tunnel_key " + std::to_string(number) + " is no VNI");
      }
    }
    for (Json const& mode : atoms(*row, "replication_mode")) now.serviceNodes |= mode == "service_node";
  }
  LogicalSwitch const before = std::exchange(logicalSwitches_[id], now);
  if (row == nullptr) logicalSwitches_.erase(id);
  if (before.vni && before.vni != now.vni) {
    auto const found = switchesOf_.find(*before.vni);
    found->second.erase(id);
    if (found->second.empty()) switchesOf_.erase(found);
    handlers_.vniChanged(*before.vni);
    relabel(id, *before.vni);
  }
  if (now.vni && before.vni != now.vni) {
    switchesOf_[*now.vni].insert(id);
    handlers_.vniChanged(*now.vni);
    relabel(id, *now.vni);
  } else if (now.vni && before.serviceNodes != now.serviceNodes) {
    relabel(id, *now.vni);
  }
}

void Replica::takeLocator(Uuid const& id, Json const* row) {
  if (auto const found = locators_.find(id); found != locators_.end()) {
    if (found->second.vtep && !found->second.hasKey) locatorsOf_[*found->second.vtep].erase(id);
    locators_.erase(found);
  }
  if (row == nullptr) return;
  Locator const now{vtepOf(id, "Physical_Locator: dst_ip", stringOf(*row, "dst_ip")),
                    !atoms(*row, "tunnel_key").empty()};
  locators_[id] = now;
  if (now.vtep && !now.hasKey) locatorsOf_[*now.vtep].insert(id);
}

void Replica::takeLocatorSet(Uuid const& id, Json const* row) {
  if (row == nullptr) {
    locatorSets_.erase(id);
    return;
  }
  std::vector<Uuid> locators;
  for (Json const& each : atoms(*row, "locators")) locators.push_back(uuidOf(each));
  locatorSets_[id] = std::move(locators);
}

void Replica::takePhysicalSwitch(Uuid const& id, Json const* row) {
  std::vector<Wirix::IpAddr> vteps;
  if (row != nullptr) {
    for (Json const& each : atoms(*row, "tunnel_ips")) {
      auto const vtep = vtepOf(id, "Physical_Switch: tunnel_ips", each.get<std::string>());
      if (vtep) vteps.push_back(*vtep);
    }
  }
  if (std::exchange(tunnelIps_[id], vteps) == vteps) return;
  handlers_.ownVtepsChanged();
}

void Replica::takeMac(MacTable table, Uuid const& id, Json const* row) {
  MacIndex& macs = index(table);
  if (auto const found = macs.rows.find(id); found != macs.rows.end()) {
    Place const place(found->second.logicalSwitch, found->second.mac);
    macs.rows.erase(found);
    auto const there = macs.places.find(place);
    std::erase(there->second, id);
    if (there->second.empty()) macs.places.erase(there);
    changed(table, place);
  }
  if (row == nullptr) return;
  auto const mac = macOf(table, id, stringOf(*row, "MAC"));
  if (!mac) return;
  char const* const target = isUnicast(table) ? "locator" : "locator_set";
  MacRow const now{*mac, uuidOf(row->at("logical_switch")), uuidOf(row->at(target))};
  macs.rows.emplace(id, now);
  Place const place(now.logicalSwitch, now.mac);
  macs.places[place].push_back(id);
  changed(table, place);
}

std::optional<Wirix::EthAddr> Replica::macOf(MacTable table, Uuid const& id, std::string const& text) {
  if (!isUnicast(table) && text == "unknown-dst") return Wirix::EthAddr();
  auto const mac = parsed<Wirix::EthAddr>(text);
  std::string const where = std::string(nameOf(table)) + ": MAC '" + text + "' ";
  if (!mac) {
    refuse(id, "MAC that is none", where + "is no MAC address");
  } else if (!isUnicast(table) && !isGroup(*mac)) {
    refuse(id, "multicast MAC that is no group's", where + "is neither a group's nor unknown-dst");
  } else {
    return mac;
  }
  return std::nullopt;
}

std::optional<Wirix::IpAddr> Replica::vtepOf(Uuid const& id, std::string const& column,
                                             std::string const& text) {
  auto const vtep = parsed<Wirix::IpAddr>(text);
  if (!vtep) {
    refuse(id, "address that is not IPv4, and what is behind it",
           column + " '" + text + "' is no IPv4 address; what is behind it is left out");
  }
  return vtep;
}

void Replica::refuse(Uuid const& id, std::string_view fault, std::string const& what) {
  if (faults_.emplace(id, fault).second) ++leftOut_[fault];
  handlers_.refused(what);
}

void Replica::changed(MacTable table, Place const& place) {
  auto const found = logicalSwitches_.find(place.first);
  if (found != logicalSwitches_.end() && found->second.vni)
    announce(table, {*found->second.vni, place.second});
}

void Replica::announce(MacTable table, Key const& key) {
  isRemote(table) ? handlers_.remoteChanged(key) : handlers_.localChanged(key);
}

void Replica::relabel(Uuid const& logicalSwitch, Vxlan::Vni vni) {
  for (std::size_t i = 0; i < macs_.size(); ++i) {
    relabelled_.push_back({logicalSwitch, vni, static_cast<MacTable>(i), {}});
  }
}

bool Replica::relabel(std::size_t limit) {
  while (!relabelled_.empty()) {
    Relabelled& last = relabelled_.back();
    auto const& places = index(last.table).places;
    auto at = places.lower_bound({last.logicalSwitch, last.next});
    for (; at != places.end() && at->first.first == last.logicalSwitch; ++at) {
      if (limit-- == 0) {
        last.next = at->first.second;
        return true;
      }
      announce(last.table, {last.vni, at->first.second});
    }
    relabelled_.pop_back();
  }
  return false;
}

bool Replica::shrink(std::size_t limit) {
  for (MacIndex& each : macs_) {
    shrinkMap(each.rows, limit);
    shrinkMap(each.places, limit);
  }
  shrinkMap(locators_, limit);
  shrinkMap(locatorSets_, limit);
  shrinkMap(faults_, limit);
  return limit == 0;
}

std::set<Wirix::IpAddr> Replica::ownVteps() const {
  std::set<Wirix::IpAddr> result;
  for (auto const& [id, vteps] : tunnelIps_) result.insert(vteps.begin(), vteps.end());
  return result;
}

std::set<Uuid> const& Replica::switchesOf(Vxlan::Vni vni) const {
  static std::set<Uuid> const none;
  auto const found = switchesOf_.find(vni);
  return found == switchesOf_.end() ? none : found->second;
}

bool Replica::usesServiceNodes(Uuid const& logicalSwitch) const {
  auto const found = logicalSwitches_.find(logicalSwitch);
  return found != logicalSwitches_.end() && found->second.serviceNodes;
}

std::vector<Uuid> const& Replica::rowsOf(MacTable table, Uuid const& logicalSwitch,
                                         Wirix::EthAddr mac) const {
  static std::vector<Uuid> const none;
  auto const found = index(table).places.find({logicalSwitch, mac});
  return found == index(table).places.end() ? none : found->second;
}

void Replica::forEachMac(MacTable table, Uuid const& logicalSwitch,
                         std::function<void(Wirix::EthAddr, std::vector<Uuid> const&)> const& visit) const {
  auto const& places = index(table).places;
  for (auto at = places.lower_bound({logicalSwitch, {}});
       at != places.end() && at->first.first == logicalSwitch; ++at) {
    visit(at->first.second, at->second);
  }
}

VtepList Replica::vtepsOf(MacTable table, Uuid const& row) const {
  VtepList result;
  auto const add = [&](Uuid const& locator) {
    auto const found = locators_.find(locator);
    if (found != locators_.end() && found->second.vtep) result.push_back(*found->second.vtep);
  };
  Uuid const& target = index(table).rows.at(row).target;
  if (isUnicast(table)) {
    add(target);
  } else if (auto const set = locatorSets_.find(target); set != locatorSets_.end()) {
    for (Uuid const& locator : set->second) add(locator);
  }
  std::sort(result.begin(), result.end());
  result.erase(std::unique(result.begin(), result.end()), result.end());
  return result;
}

std::optional<Uuid> Replica::locatorOf(Wirix::IpAddr vtep) const {
  auto const found = locatorsOf_.find(vtep);
  if (found == locatorsOf_.end() || found->second.empty()) return std::nullopt;
  return *found->second.begin();
}

}  // namespace Ovsdb
