#pragma once

#include <string>
#include <string_view>

#include "VxlanController/QorEvpnBrine.h"
#include "agent/tables/Tables.h"
#include "support/Paths.h"
#include "support/Program.h"

/// A site whose tables this process writes, for tests of the commands that read them.
class SiteWriter {
 public:
  explicit SiteWriter(std::uint32_t ringEntries = 8192) : site_(folder_.path()), ringEntries_(ringEntries) {}

  Agent::Site const& site() const { return site_; }
  std::string const& dir() const { return site_.dir(); }

  template <class Row>
  void mount(Brine::Table<Row>& table, bool learned = false) const {
    table.mount({.directory = Agent::placeOf<Row>(learned).directory(site_),
                 .name = std::string(Agent::TableKind<Row>::file),
                 .mode = Brine::Mode::writer,
                 .turns = true,
                 .initialRows = 16,
                 .ringEntries = ringEntries_});
  }
  void mountHosts() { mount(hosts); }

  /// A turn that writes these rows, and one that removes a row.
  void write(std::vector<QorEvpn::Host> const& rows) {
    for (QorEvpn::Host const& row : rows) hosts.write(row);
    hosts.endTurn();
  }
  void remove(QorEvpn::Host const& row) {
    hosts.remove(row.key());
    hosts.endTurn();
  }

  Brine::Table<QorEvpn::Host> hosts;
  Brine::Table<QorEvpn::FloodEntry> floods;
  Brine::Table<Bridging::BridgeId> brIds;
  Brine::Table<QorEvpn::Host> learnedHosts;
  Brine::Table<Agent::EvpnState> learnedState;

 private:
  TestSupport::ScratchFolder folder_;
  Agent::Site site_;
  std::uint32_t ringEntries_;
};

/// The VTEP is 10.99.0.`vtep`.
inline QorEvpn::Host host(std::uint32_t vni, std::uint64_t mac, std::uint32_t vtep, std::uint32_t seq = 0) {
  QorEvpn::Host row(QorEvpn::MacVniPair(Wirix::EthAddr::ofValue(mac), Vxlan::Vni(vni)));
  row.vtepAddrIs(Wirix::IpAddr(0x0A630000 + vtep));
  row.seqNoIs(Seqno32(seq));
  return row;
}

inline QorEvpn::FloodEntry flood(std::uint32_t vni, std::uint32_t vtep) {
  return QorEvpn::FloodEntry(QorEvpn::VniVtepPair(Vxlan::Vni(vni), Wirix::IpAddr(0x0A630000 + vtep)));
}
