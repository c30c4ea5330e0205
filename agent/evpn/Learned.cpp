#include "agent/evpn/Learned.h"

namespace Agent {

using namespace QorEvpn;

Learned::Learned(Site const& site, bool repair)
    : state_(site.learned(), repair), tables_("evpn", site.learned()) {
  tables_.mountAsWriter(repair);
}

void Learned::hostIs(Host const& row) {
  // Readers take a default row for absent, so it is removed.
  if (row == Host()) return hostDel(row.key());
  if (tables_.host->host(row.key()) != row) tables_.host->hostIs(row);
}

void Learned::hostDel(MacVniPair const& key) { tables_.host->hostDel(key); }

void Learned::floodIs(VniVtepPair const& key) {
  if (FloodEntry const row(key); tables_.flood->floodEntry(key) != row) tables_.flood->floodEntryIs(row);
}

void Learned::floodDel(VniVtepPair const& key) { tables_.flood->floodEntryDel(key); }

void Learned::forEach(std::function<void(Host const&)> const& visitHost,
                      std::function<void(FloodEntry const&)> const& visitFlood) const {
  forEachRow(*tables_.host, tables_.host->hostWalk(), visitHost);
  forEachRow(*tables_.flood, tables_.flood->floodEntryWalk(), visitFlood);
}

void Learned::clear() {
  tables_.host->hostDelAll();
  tables_.flood->floodEntryDelAll();
  stateIs(EvpnState());
  endTurn();
}

}  // namespace Agent
