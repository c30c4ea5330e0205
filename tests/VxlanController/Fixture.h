#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <set>

#include "Orb/Type.h"
#include "VxlanController/QorEvpnRow.h"
#include "VxlanController/QorEvpnRxSm.h"
#include "VxlanController/QorEvpnTxSm.h"
#include "support/Paths.h"
#include "support/TraceCapture.h"
#include "support/Watcher.h"

namespace MachineTests {

using Orb::makePtr, Orb::Ptr;
using QorEvpn::entryOf;
using QorEvpn::FloodEntry, QorEvpn::Host, QorEvpn::MacVniPair, QorEvpn::VniVtepPair;
using QorEvpn::FloodTable, QorEvpn::HostTable, QorEvpn::QorBrIdList;
using QorEvpn::MacVtepFloodListSm, QorEvpn::QorEvpnTxSm, QorEvpn::VniFdbStatusSm;
using Vxlan::Vni;
using VxlanController::MacVtepFloodListV2, VxlanController::MacVtepV2, VxlanController::QorEvpnRxSm;
using VxlanController::VniFdbStatusV2, VxlanController::VniStatusDirV2, VxlanController::VniStatusV2;
using Wirix::EthAddr, Wirix::IpAddr;
using Texts = std::vector<std::string>;

/// 02:00:00:00:00:n, or the all-BUM address for 0; 10.99.0.n.
inline EthAddr mac(uint32_t n) { return EthAddr::ofValue(n == 0 ? 0 : 0x020000000000 + n); }
inline IpAddr ip(uint32_t n) { return IpAddr(0x0A630000 + n); }
inline EthAddr const bum;

inline MacVtepV2 entry(uint32_t m, uint32_t vtep, uint32_t seqNo = 1, uint8_t preference = 16) {
  return MacVtepV2(mac(m), ip(vtep), Seqno32(seqNo), preference);
}
inline Host host(uint32_t vni, uint32_t m, uint32_t vtep) {
  return QorEvpn::hostOf(Vni(vni), entry(m, vtep));
}
inline FloodEntry flood(uint32_t vni, uint32_t vtep) { return FloodEntry(VniVtepPair(Vni(vni), ip(vtep))); }
inline Bridging::BridgeId brId(uint32_t vni) { return Bridging::BridgeId::ofVni(Vni(vni)); }

inline Brine::MountOptions optionsOf(TestSupport::ScratchFolder const& folder, Brine::Mode mode) {
  Brine::MountOptions options;
  options.directory = folder.path();
  options.mode = mode;
  options.turns = true;
  return options;
}

/// Both tables, as one side holds them; by default in a folder of their own.
struct Tables {
  using Folder = std::shared_ptr<TestSupport::ScratchFolder const>;

  explicit Tables(Brine::Mode mode,
                  Folder in = std::make_shared<TestSupport::ScratchFolder const>("/dev/shm"))
      : folder(std::move(in)) {
    auto const mount = [&](auto const& table) {
      EXPECT_EQ(table->mount(optionsOf(*folder, mode)), Brine::MountStatus::mounted) << table->mountDetail();
      table->corruptionHandler = [this](std::string const& message) { reports.push_back(message); };
    };
    mount(hostTable), mount(floodTable);
  }
  void endTurn() const { hostTable->endTurn(), floodTable->endTurn(); }
  void deliver() const { hostTable->deliver(), floodTable->deliver(); }
  /// Changes one bit of a row in the file of its table: in the middle, where no other row has the same.
  template <class Row>
  void damage(Row const& row) const {
    std::string const table = std::is_same_v<Row, Host> ? "host" : "flood";
    uint64_t words[Brine::Codec<Row>::rowWords];
    Brine::Codec<Row>::encode(row, words);
    TestSupport::damage(folder->path() + "/%2F" + table + ".table",
                        {reinterpret_cast<char const*>(&words[Brine::Codec<Row>::rowWords / 2]), 8});
  }

  Folder folder;
  Ptr<HostTable> hostTable = QorEvpn::hostTableFactory("host");
  Ptr<FloodTable> floodTable = QorEvpn::floodTableFactory("flood");
  Texts reports;
};

/// "1>11/1/16 ": MAC, VTEP, sequence number, preference.
inline std::string text(MacVtepV2 const& entry) {
  std::string out;
  Orb::appendTexts(out, entry.macAddr().value() & 0xFF, '>', entry.vtepAddr().value() & 0xFF, '/',
                   entry.seqNo(), '/', entry.preference(), ' ');
  return out;
}
/// "10:1>11/1/16 " a row, sorted by VNI, then MAC.
inline std::string text(HostTable const& table) {
  std::vector<Host> rows = table.hostSorted();
  std::ranges::stable_sort(rows, {}, [](Host const& row) { return row.key().vni(); });
  std::string out;
  for (Host const& row : rows) Orb::appendTexts(out, row.key().vni(), ':', text(entryOf(row)));
  return out;
}
/// "10>11 " a row, sorted.
inline std::string text(FloodTable const& table) {
  std::string out;
  for (FloodEntry const& row : table.floodEntrySorted())
    Orb::appendTexts(out, row.key().vni(), '>', row.key().vtepAddr().value() & 0xFF, ' ');
  return out;
}
inline std::string text(QorBrIdList const& list) {
  std::set<uint32_t> vnis;
  for (auto const& entry : list.brIdList()) vnis.insert(entry.key.vni().value());
  std::string out;
  for (uint32_t vni : vnis) Orb::appendTexts(out, vni, ' ');
  return out;
}
/// "10[1>11/1/16 bum>12 ] " a VNI, sorted; "bum>" is an empty flood list.
inline std::string text(VniStatusDirV2 const& dir) {
  std::map<uint32_t, std::set<std::string>> vnis;
  for (auto const& of : dir.vniStatusV2()) {
    auto& entries = vnis[of.key.value()];
    for (auto const& mac : of.value->macVtepTable()) {
      EXPECT_EQ(mac.key, mac.value.macAddr());
      entries.insert(text(mac.value));
    }
    for (auto const& list : of.value->macVtepFloodListTable()) {
      EXPECT_EQ(list.key, bum);
      if (list.value->vtepIpFloodList().empty()) entries.insert("bum> ");
      for (auto const& vtep : list.value->vtepIpFloodList()) {
        EXPECT_TRUE(vtep.value);
        entries.insert("bum>" + std::to_string(vtep.key.value() & 0xFF) + ' ');
      }
    }
  }
  std::string out;
  for (auto const& [vni, entries] : vnis) {
    Orb::appendTexts(out, vni, '[');
    for (std::string const& entry : entries) out += entry;
    out += "] ";
  }
  return out;
}

/// The inputs and outputs of the transmit machines, and what the machines do with them.
class TransmitFixture : public testing::Test, public Tables {
 public:
  TransmitFixture() : Tables(Brine::Mode::writer) {}

  Ptr<QorEvpnTxSm> const& make() {
    return root = QorEvpn::qorEvpnTxSmFactory(dir, evpn, brIds, hostTable, floodTable);
  }
  /// A VNI's status, in the directory under that name.
  Ptr<VniFdbStatusV2> vniIs(std::string const& name, uint32_t vni = 0) const {
    auto const status = makePtr<VniFdbStatusV2>(name, Vni(vni));
    dir->entryIs(status);
    return status;
  }
  static Ptr<MacVtepFloodListV2> listOf(auto const& status, std::map<uint32_t, bool> const& vteps) {
    auto const list = status->macVtepFloodListTableIs(bum);
    for (auto [vtep, on] : vteps) list->vtepIpFloodListIs(ip(vtep), on);
    return list;
  }
  /// The traces since the last call, a line each.
  std::string traced() {
    std::string out;
    for (std::string const& line : traces.take()) out += line + "\n";
    return out;
  }
  /// Operations on both tables since the last call: writes, removals and notifications of each.
  std::array<uint64_t, 6> counts() {
    std::array<uint64_t, 6> now{}, since{};
    size_t i = 0;
    for (std::string const operation : {"Is", "Del", "Notify"}) {
      now[i] = Counter::value("host", "host" + operation);
      now[i++ + 3] = Counter::value("flood", "floodEntry" + operation);
    }
    for (i = 0; i < 6; ++i) since[i] = now[i] - std::exchange(counted[i], now[i]);
    return since;
  }
  using Counts = std::array<uint64_t, 6>;
  std::string tables() const { return text(*hostTable) + "| " + text(*floodTable) + "| " + text(*brIds); }
  /// Adds a step to the story: its traces, the outputs and the operations on both tables.
  void told(std::string const& step) {
    std::string outputs = tables();
    while (outputs.ends_with(' ')) outputs.pop_back();
    Orb::appendTexts(story, "# ", step, '\n', traced(), "= ", outputs, "\n=");
    for (uint64_t count : counts()) Orb::appendTexts(story, ' ', count);
    story += '\n';
  }

  /// VNI 10, served by a machine.
  void serve() {
    if (!root) make();
    fdb10 = vniIs("10", 10);
    sm10 = root->vniFdbStatusSm(Vni(10));
    traced(), counts();
  }

  TestSupport::TraceCapture traces{"VxlanControllerEvpnTxSm"};
  Ptr<Orb::Dir> dir = makePtr<Orb::Dir>("vnis");
  Ptr<VniStatusDirV2> evpn = makePtr<VniStatusDirV2>("evpn");
  Ptr<QorBrIdList> brIds = makePtr<QorBrIdList>("brIds");
  Counts counted{};
  std::string story;
  Ptr<QorEvpnTxSm> root;
  Ptr<VniFdbStatusV2> fdb10;
  Ptr<VniFdbStatusSm> sm10;
};

}  // namespace MachineTests
