#include "VxlanController/QorEvpnBrine.h"

template class Brine::Table<QorEvpn::Host>;
template class Brine::Table<QorEvpn::FloodEntry>;

namespace QorEvpn {

HostTable::HostTable(Orb::Name name)
    : EntityTable(std::move(name), {"hostIs", "hostDel", "hostNotify"}, hostAttr, hostControlAttr) {}

Orb::TypeDescriptor const& HostTable::fwkType() const {
  using A = Orb::Attributes<HostTable>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::HostTable",
      {{.name = "host",
        .read = [](Orb::PtrInterface const& table) { return static_cast<HostTable const&>(table).keys(); },
        .id = hostAttr.id},
       A::value<&HostTable::hostControl>("hostControl", hostControlAttr.id)},
      &Entity::type());
  return descriptor;
}

FloodTable::FloodTable(Orb::Name name)
    : EntityTable(std::move(name), {"floodEntryIs", "floodEntryDel", "floodEntryNotify"}, floodEntryAttr,
                  floodEntryControlAttr) {}

Orb::TypeDescriptor const& FloodTable::fwkType() const {
  using A = Orb::Attributes<FloodTable>;
  static Orb::TypeDescriptor const descriptor(
      "QorEvpn::FloodTable",
      {{.name = "floodEntry",
        .read = [](Orb::PtrInterface const& table) { return static_cast<FloodTable const&>(table).keys(); },
        .id = floodEntryAttr.id},
       A::value<&FloodTable::floodEntryControl>("floodEntryControl", floodEntryControlAttr.id)},
      &Entity::type());
  return descriptor;
}

Orb::Ptr<HostTable> hostTableFactory(Orb::Name name) {
  auto table = Orb::makePtr<HostTable>(std::move(name));
  table->hasNotificationActiveIs(true);
  return table;
}

Orb::Ptr<FloodTable> floodTableFactory(Orb::Name name) {
  auto table = Orb::makePtr<FloodTable>(std::move(name));
  table->hasNotificationActiveIs(true);
  return table;
}

Orb::Ptr<HostTable> hostTableIs(Orb::Dir& dir, Orb::Name const& name) {
  auto table = hostTableFactory(name);
  dir.entryIs(table);
  return table;
}

Orb::Ptr<FloodTable> floodTableIs(Orb::Dir& dir, Orb::Name const& name) {
  auto table = floodTableFactory(name);
  dir.entryIs(table);
  return table;
}

}  // namespace QorEvpn
