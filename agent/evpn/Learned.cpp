#include "agent/evpn/Learned.h"

namespace Agent {

using namespace QorEvpn;

Learned::Learned(Site const& site, bool repair) : tables_("evpn", site.learned()) {
  tables_.mountAsWriter(repair);
  if (tables_.rows() != 0) held_.emplace();
}

void Learned::hostIs(Host const& row) {
  // A row that readers take for absent says that there is none.
  if (row == Host()) return hostDel(row.key());
  if (held_) {
    held_->hosts.insert_or_assign(row.key(), row);
  } else if (tables_.host->host(row.key()) != row) {
    tables_.host->hostIs(row);
  }
}

void Learned::hostDel(MacVniPair const& key) {
  if (held_) {
    held_->hosts.erase(key);
  } else {
    tables_.host->hostDel(key);
  }
}

void Learned::floodIs(VniVtepPair const& key) {
  if (held_) {
    held_->floods.insert(key);
  } else if (FloodEntry const row(key); tables_.flood->floodEntry(key) != row) {
    tables_.flood->floodEntryIs(row);
  }
}

void Learned::floodDel(VniVtepPair const& key) {
  if (held_) {
    held_->floods.erase(key);
  } else {
    tables_.flood->floodEntryDel(key);
  }
}

void Learned::apply(Event const& event) {
  if (event.op == Op::mac) {
    Host row(MacVniPair(event.mac, event.vni));
    row.vtepAddrIs(event.vtep);
    row.seqNoIs(event.seq);
    row.preferenceIs(event.preference);
    hostIs(row);
  } else if (event.op == Op::macDel) {
    hostDel(MacVniPair(event.mac, event.vni));
  } else if (event.op == Op::flood) {
    floodIs(VniVtepPair(event.vni, event.vtep));
  } else if (event.op == Op::floodDel) {
    floodDel(VniVtepPair(event.vni, event.vtep));
  }
}

void Learned::clear() {
  held_.reset();
  tables_.host->hostDelAll();
  tables_.flood->floodEntryDelAll();
  tables_.endTurn();
}

void Learned::release() {
  if (!held_) return;
  Held const held = *std::exchange(held_, std::nullopt);
  forEachRow(*tables_.host, tables_.host->hostWalk(), [&](Host const& row) {
    if (MacVniPair const key = row.key(); !held.hosts.contains(key)) tables_.host->hostDel(key);
  });
  forEachRow(*tables_.flood, tables_.flood->floodEntryWalk(), [&](FloodEntry const& row) {
    if (VniVtepPair const key = row.key(); !held.floods.contains(key)) tables_.flood->floodEntryDel(key);
  });
  for (auto const& [key, row] : held.hosts) hostIs(row);
  for (VniVtepPair const& key : held.floods) floodIs(key);
}

}  // namespace Agent
