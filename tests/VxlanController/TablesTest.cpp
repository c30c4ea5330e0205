#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "VxlanController/QorEvpnBrine.h"

namespace {

using Brine::Mode;
using QorEvpn::FloodEntry;
using QorEvpn::FloodTable;
using QorEvpn::Host;
using QorEvpn::HostTable;
using QorEvpn::MacVniPair;
using QorEvpn::VniVtepPair;
using testing::ElementsAre;

MacVniPair hostKey(uint64_t mac, uint32_t vni) { return {Wirix::EthAddr::ofValue(mac), Vxlan::Vni(vni)}; }

Host makeHost(uint64_t mac, uint32_t vni, uint32_t vtep) {
  Host host(hostKey(mac, vni));
  host.vtepAddrIs(Wirix::IpAddr(vtep));
  return host;
}

/// Writes down what it is told, with the counts at that time.
template <class Table, class Key>
class Recorder : public Orb::PtrInterface::NotifieeConst {
 public:
  Recorder(Table* table, std::string_view counted, std::vector<std::string>& log)
      : table_(table), counted_(counted), log_(log) {
    hasNotificationActiveIs(true);
    isRegisteredNotifieeIs(true);
  }
  void onAttribute(Orb::AttributeId id, void const* key) override {
    std::string text = std::to_string(id);
    if (key != nullptr) text += " " + valueToStrep(*static_cast<Key const*>(key));
    for (char const* operation : {"Is", "Del", "Notify"}) {
      text += " " + std::to_string(Counter::value(table_->name().text(), counted_ + operation));
    }
    log_.push_back(text);
  }
  Orb::Ptr<Orb::PtrInterface const> notifier() const override { return table_; }
  void notifierIs(Orb::Ptr<Orb::PtrInterface const> const&) override {}

 private:
  Table* table_;
  std::string counted_;
  std::vector<std::string>& log_;
};

class Tables : public testing::Test {
 protected:
  Tables() {
    std::string name = "/dev/shm/tables-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    folder = name;
  }
  ~Tables() override { std::filesystem::remove_all(folder); }
  Brine::MountOptions options(Mode mode) const {
    Brine::MountOptions options;
    options.directory = folder;
    options.mode = mode;
    return options;
  }

  std::string folder;
  std::vector<std::string> log;
};

TEST_F(Tables, CountTheOperationFirstAndTheNotificationLast) {
  auto const table = QorEvpn::hostTableFactory("host");
  EXPECT_TRUE(table->hasNotificationActive());
  ASSERT_EQ(table->mount(options(Mode::writer)), Brine::MountStatus::mounted) << table->mountDetail();
  Recorder<HostTable, MacVniPair> const recorder(table.get(), "host", log);
  Host const host = makeHost(1, 10, 5);
  std::string const text = "256 " + valueToStrep(host.key());
  table->hostDelAll();
  EXPECT_EQ(table->hostDel(host.key()), Host());
  table->hostIs(host);
  table->hostIs(host);
  table->hostCommit(&host);
  EXPECT_EQ(table->host(host.key()), host);
  EXPECT_EQ(table->hostDel(host.key()), host);
  EXPECT_EQ(table->host(host.key()), Host());
  auto const control = table->hostControl();
  table->hostControlIs(control);
  table->hostControlIs(Orb::makePtr<Brine::CollectionControl>());
  EXPECT_THAT(log,
              ElementsAre(text + " 1 1 0", text + " 2 1 1", text + " 3 1 2", text + " 3 2 3", "257 3 2 4"));
}

TEST_F(Tables, FloodTableDoesTheSameUnderItsOwnNames) {
  auto const table = QorEvpn::floodTableFactory("flood");
  ASSERT_EQ(table->mount(options(Mode::writer)), Brine::MountStatus::mounted) << table->mountDetail();
  Recorder<FloodTable, VniVtepPair> const recorder(table.get(), "floodEntry", log);
  FloodEntry const entry(VniVtepPair(Vxlan::Vni(10), Wirix::IpAddr(7)));
  std::string const text = "256 " + valueToStrep(entry.key());
  table->floodEntryIs(entry);
  table->floodEntryCommit(&entry);
  EXPECT_EQ(table->floodEntryDel(VniVtepPair()), FloodEntry());
  EXPECT_EQ(table->floodEntry(entry.key()), entry);
  table->floodEntryDelAll();
  table->floodEntryControlIs(nullptr);
  EXPECT_THAT(log, ElementsAre(text + " 1 0 0", text + " 2 0 1", text + " 2 2 2", "257 2 2 3"));
}

TEST_F(Tables, ReachReadersByTheirPlaceInTheDirectory) {
  auto const writers = Orb::makePtr<Orb::Dir>("site/a");
  auto const readers = Orb::makePtr<Orb::Dir>("site/a");
  auto const writer = QorEvpn::hostTableIs(*writers, "host");
  auto const reader = QorEvpn::hostTableIs(*readers, "host");
  ASSERT_EQ(writer->mount(options(Mode::writer)), Brine::MountStatus::mounted) << writer->mountDetail();
  EXPECT_TRUE(std::filesystem::exists(folder + "/%2Fsite%2Fa%2Fhost.table"));
  ASSERT_EQ(reader->mount(options(Mode::keyshadow)), Brine::MountStatus::mounted) << reader->mountDetail();
  EXPECT_EQ(reader->hostControl()->mountStatus(), Brine::MountStatus::mounted);
  Recorder<HostTable, MacVniPair> const recorder(reader.get(), "host", log);
  EXPECT_TRUE(writer->hostControl()->quiesced());
  for (uint32_t i = 0; i < 10; ++i) writer->hostIs(makeHost(i, i % 2, i));
  EXPECT_FALSE(writer->hostControl()->quiesced());
  writer->endTurn();
  EXPECT_TRUE(writer->hostControl()->quiesced());
  EXPECT_EQ(reader->deliver().changes, 10U);
  EXPECT_EQ(log.size(), 10U);
  EXPECT_TRUE(reader->hostControl()->quiesced());
  std::vector<uint64_t> macs;
  for (auto walk = reader->hostWalk(Vxlan::Vni(1)); Host const* row = walk.next();) {
    macs.push_back(row->key().macAddr().value());
  }
  EXPECT_THAT(macs, ElementsAre(1U, 3U, 5U, 7U, 9U));
  size_t rest = 0;
  for (auto walk = reader->hostWalkAfter(hostKey(6, 0)); walk.next();) ++rest;
  EXPECT_EQ(rest, 3U);
  EXPECT_EQ(Orb::attribute(*reader, "host").as<std::vector<Orb::Value>>().size(), 10U);
  writer->unmount();
  EXPECT_FALSE(writer->hostControl()->quiesced());
  reader->deliver();
  EXPECT_EQ(reader->hostControl()->mountStatus(), Brine::MountStatus::writerGone);
}

TEST_F(Tables, RefuseWhatTheirStateDoesNotAllow) {
  auto const message = [](auto&& call) -> std::string {
    try {
      call();
    } catch (Orb::Error const& error) {
      return error.what();
    }
    return "";
  };
  auto const table = QorEvpn::hostTableFactory("host");
  EXPECT_EQ(message([&] { table->hostIs(Host()); }), "write to read-only Brine table");
  EXPECT_EQ(message([&] { table->hostDel(MacVniPair()); }), "remove to read-only Brine table");
  table->mount(options(Mode::reader));
  EXPECT_EQ(message([&] { table->mount(options(Mode::reader)); }),
            "/host is already mounted, mountStatus:no table");
  Brine::BrineMap<Host> map;
  EXPECT_EQ(message([&] { map.notifyingIs(true); }),
            "BrineMap::notifyingIs() not allowed at this time, initialized:false");
  EXPECT_EQ(message([&] { map.cleanup(); }), "trying to cleanup uninitialized brine.");
}

TEST_F(Tables, HandDamageToTheirHandlerAndGoOn) {
  auto const table = QorEvpn::hostTableFactory("host");
  std::vector<std::string> reports;
  table->corruptionHandler = [&](std::string const& text) { reports.push_back(text); };
  ASSERT_EQ(table->mount(options(Mode::writer)), Brine::MountStatus::mounted) << table->mountDetail();
  for (uint32_t i = 0; i < 4; ++i) table->hostIs(makeHost(i + 1, 10, 0x0A0B0C0D));
  // Damages the third row's value, which is the only place that holds these bytes.
  std::string const path = folder + "/%2Fhost.table";
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  std::string bytes(std::filesystem::file_size(path), 0);
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  size_t at = 0;
  for (int i = 0; i < 3; ++i) at = bytes.find("\x0D\x0C\x0B\x0A", at + 1);
  file.seekp(static_cast<std::streamoff>(at));
  file.put(0x0E).flush();
  EXPECT_EQ(table->host(hostKey(3, 10)), Host());
  table->hostDelAll();
  EXPECT_THAT(reports, ElementsAre("row 2 is damaged", "row 2 is damaged"));
  EXPECT_EQ(table->statistics().rows, 2U);
  EXPECT_EQ(table->hostDel(hostKey(3, 10)), Host());
  table->hostDelAll();
  EXPECT_EQ(table->corruptions(), 3U);
  EXPECT_EQ(table->statistics().rows, 0U);
  EXPECT_TRUE(table->check().empty());
}

TEST_F(Tables, ChangeRolesWithTheirControlWhenTheLastReferenceGoes) {
  auto const isAlive = [] { return !Counter::countersOf("roles").empty(); };
  auto table = QorEvpn::hostTableFactory("roles");
  table = nullptr;
  EXPECT_FALSE(isAlive());
  table = QorEvpn::hostTableFactory("roles");
  Orb::Ptr<Brine::CollectionControl> control = table->hostControl();
  EXPECT_FALSE(control->entity());
  table = nullptr;
  ASSERT_TRUE(isAlive());
  EXPECT_EQ(control->entity()->name().text(), "roles");
  EXPECT_FALSE(Orb::ptrCast<HostTable const>(control->entity())->hostControl());
  control = nullptr;
  EXPECT_FALSE(isAlive());
}

}  // namespace
