#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "Orb/Type.h"
#include "VxlanController/QorEvpnRxSm.h"
#include "VxlanController/QorEvpnTxSm.h"
#include "support/TraceCapture.h"
#include "support/Watcher.h"

namespace MachineTests {

using Orb::makePtr;
using Orb::Ptr;
using QorEvpn::FloodEntry, QorEvpn::Host, QorEvpn::MacVniPair, QorEvpn::VniVtepPair;
using QorEvpn::FloodTable, QorEvpn::HostTable, QorEvpn::QorBrIdList;
using QorEvpn::MacVtepFloodListSm, QorEvpn::QorEvpnTxSm, QorEvpn::VniFdbStatusSm;
using Vxlan::Vni;
using VxlanController::MacVtepFloodListV2, VxlanController::MacVtepV2, VxlanController::QorEvpnRxSm;
using VxlanController::VniFdbStatusV2, VxlanController::VniStatusDirV2, VxlanController::VniStatusV2;
using Wirix::EthAddr, Wirix::IpAddr;

/// 02:00:00:00:00:n, or the all-BUM address for 0; 10.99.0.n.
inline EthAddr mac(uint32_t n) { return EthAddr::ofValue(n == 0 ? 0 : 0x020000000000 + n); }
inline IpAddr ip(uint32_t n) { return IpAddr(0x0A630000 + n); }
inline EthAddr const bum;

inline MacVtepV2 entry(uint32_t m, uint32_t vtep, uint32_t seqNo = 1, uint8_t preference = 16) {
  return MacVtepV2(mac(m), ip(vtep), Seqno32(seqNo), preference);
}
inline Host hostOf(Vni vni, MacVtepV2 const& entry) {
  Host row(MacVniPair(entry.macAddr(), vni));
  row.vtepAddrIs(entry.vtepAddr());
  row.seqNoIs(entry.seqNo());
  row.preferenceIs(entry.preference());
  return row;
}
inline Host host(uint32_t vni, uint32_t m, uint32_t vtep) { return hostOf(Vni(vni), entry(m, vtep)); }
inline FloodEntry flood(uint32_t vni, uint32_t vtep) { return FloodEntry(VniVtepPair(Vni(vni), ip(vtep))); }
inline Bridging::BridgeId brId(uint32_t vni) { return Bridging::BridgeId::ofVni(Vni(vni)); }

/// A folder in shared memory, and a table in it.
class Folder {
 public:
  Folder() {
    if (::mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  template <class TablePtr>
  void mount(TablePtr const& table, Brine::Mode mode) const {
    Brine::MountOptions options;
    options.directory = path_;
    options.mode = mode;
    auto const status = table->mount(options);
    ASSERT_TRUE(status == Brine::MountStatus::mounted || mode != Brine::Mode::writer) << table->mountDetail();
  }
  /// Changes one byte of the last 8-byte word of that value in a table's file, which is in a row.
  void damage(std::string const& table, uint64_t word) const {
    std::string const path = path_ + "/%2F" + table + ".table";
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    std::string bytes(std::filesystem::file_size(path), '\0'), wanted(sizeof word, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::memcpy(wanted.data(), &word, sizeof word);
    size_t const at = bytes.rfind(wanted);
    ASSERT_NE(at, std::string::npos);
    file.seekp(static_cast<std::streamoff>(at)).put(static_cast<char>(bytes[at] ^ 1)).flush();
  }
  void damage(Host const& row) const {
    damage("host", uint64_t{row.vtepAddr().value()} << 32 | row.seqNo().value());
  }
  void damage(FloodEntry const& row) const {
    damage("flood", uint64_t{row.key().vni().value()} << 32 | row.key().vtepAddr().value());
  }

 private:
  std::string path_ = "/dev/shm/machines-test-XXXXXX";
};

/// "10:1>11/1/16 " a row, sorted: VNI, MAC, VTEP, sequence number, preference.
inline std::string text(HostTable const& table) {
  std::set<std::tuple<uint32_t, uint64_t, std::string>> rows;
  for (auto walk = table.hostWalk(); Host const* row = walk.next();) {
    std::string rest;
    Orb::appendTexts(rest, row->vtepAddr().value() & 0xFF, '/', row->seqNo().value(), '/', row->preference());
    rows.insert({row->key().vni().value(), row->key().macAddr().value() & 0xFF, rest});
  }
  std::string out;
  for (auto const& [vni, m, rest] : rows) Orb::appendTexts(out, vni, ':', m, '>', rest, ' ');
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

/// "10[1>11/1/16 bum 12 ] " a VNI, sorted.
inline std::string text(VniStatusDirV2 const& dir) {
  std::map<uint32_t, std::set<std::string>> vnis;
  for (auto const& of : dir.vniStatusV2()) {
    auto& entries = vnis[of.key.value()];
    for (auto const& mac : of.value->macVtepTable()) {
      EXPECT_EQ(mac.key, mac.value.macAddr());
      std::string entry;
      Orb::appendTexts(entry, mac.key.value() & 0xFF, '>', mac.value.vtepAddr().value() & 0xFF, '/',
                       mac.value.seqNo(), '/', mac.value.preference(), ' ');
      entries.insert(entry);
    }
    for (auto const& list : of.value->macVtepFloodListTable()) {
      std::set<uint32_t> vteps;
      for (auto const& vtep : list.value->vtepIpFloodList()) {
        EXPECT_TRUE(vtep.value);
        vteps.insert(vtep.key.value() & 0xFF);
      }
      std::string entry = list.key == bum ? "bum " : "other ";
      for (uint32_t vtep : vteps) Orb::appendTexts(entry, vtep, ' ');
      entries.insert(entry);
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

/// What the receive machine makes of these rows.
inline Ptr<VniStatusDirV2> mirrorOf(std::map<MacVniPair, Host> const& hosts,
                                    std::map<VniVtepPair, FloodEntry> const& floods) {
  auto const dir = makePtr<VniStatusDirV2>("mirror");
  for (auto const& [key, row] : hosts)
    dir->vniStatusV2Is(key.vni())->macVtepTableIs(
        MacVtepV2(key.macAddr(), row.vtepAddr(), row.seqNo(), row.preference()));
  for (auto const& [key, row] : floods)
    dir->vniStatusV2Is(key.vni())->macVtepFloodListTableIs(bum)->vtepIpFloodListIs(key.vtepAddr(), true);
  return dir;
}

/// What surrounds the transmit machines.
class Site : public testing::Test {
 public:
  Site() {
    folder.mount(hostTable, Brine::Mode::writer);
    folder.mount(floodTable, Brine::Mode::writer);
    auto const note = [this](std::string const& message) { reports.push_back(message); };
    hostTable->corruptionHandler = note;
    floodTable->corruptionHandler = note;
  }

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

  Folder folder;
  TestSupport::TraceCapture traces{"VxlanControllerEvpnTxSm"};
  Ptr<Orb::Dir> dir = makePtr<Orb::Dir>("vnis");
  Ptr<VniStatusDirV2> evpn = makePtr<VniStatusDirV2>("evpn");
  Ptr<QorBrIdList> brIds = makePtr<QorBrIdList>("brIds");
  Ptr<HostTable> hostTable = QorEvpn::hostTableFactory("host");
  Ptr<FloodTable> floodTable = QorEvpn::floodTableFactory("flood");
  std::vector<std::string> reports;
  Counts counted{};
  std::string story;
  Ptr<QorEvpnTxSm> root;
};

}  // namespace MachineTests
