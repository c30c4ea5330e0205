#include <gmock/gmock.h>

#include <filesystem>

#include "VxlanController/Fixture.h"

namespace MachineTests {
namespace {

using Brine::Mode, Brine::MountStatus;
using testing::ElementsAre, testing::ThrowsMessage;

class TablesTest : public testing::Test {
 protected:
  void mount(auto const& table, Mode mode = Mode::writer) const {
    EXPECT_EQ(table->mount(optionsOf(folder, mode)), MountStatus::mounted) << table->mountDetail();
  }
  /// Writes down what a table announces, with the counts at that time.
  template <class Key>
  Ptr<TestSupport::Watcher> recorder(auto const& table, std::string const& counted) {
    return makePtr<TestSupport::Watcher>(
        *table, [this, counted, owner = table->name().text()](Orb::AttributeId id, void const* key) {
          std::string text = std::to_string(id);
          if (key) text += " " + valueToStrep(*static_cast<Key const*>(key));
          for (char const* operation : {"Is", "Del", "Notify"})
            text += " " + std::to_string(Counter::value(owner, counted + operation));
          log.push_back(text);
        });
  }

  TestSupport::ScratchFolder folder{"/dev/shm"};
  std::vector<std::string> log;
};

TEST_F(TablesTest, CountTheOperationFirstAndTheNotificationLast) {
  Tables const tables(Mode::writer);
  auto const& table = tables.hostTable;
  EXPECT_TRUE(table->hasNotificationActive());
  auto const watcher = recorder<MacVniPair>(table, "host");
  Host const row = host(10, 1, 5);
  std::string const text = "256 " + valueToStrep(row.key());
  table->hostDelAll();
  EXPECT_EQ(table->hostDel(row.key()), Host());
  table->hostIs(row);
  table->hostIs(row);
  table->hostCommit(&row);
  EXPECT_EQ(table->host(row.key()), row);
  EXPECT_EQ(table->hostDel(row.key()), row);
  EXPECT_EQ(table->host(row.key()), Host());
  auto const control = table->hostControl();
  table->hostControlIs(control);
  table->hostControlIs(makePtr<Brine::CollectionControl>());
  EXPECT_THAT(std::exchange(log, {}),
              ElementsAre(text + " 1 1 0", text + " 2 1 1", text + " 3 1 2", text + " 3 2 3", "257 3 2 4"));

  // A name of its own, and one operation for all rows.
  auto const& floods = tables.floodTable;
  auto const ofFloods = recorder<VniVtepPair>(floods, "floodEntry");
  FloodEntry const vtep = flood(10, 7);
  floods->floodEntryCommit(&vtep);
  floods->floodEntryDelAll();
  std::string const vtepText = "256 " + valueToStrep(vtep.key());
  EXPECT_THAT(log, ElementsAre(vtepText + " 1 0 0", vtepText + " 1 1 1"));
  Counter::Counter twin("flood", "floodEntryIs");  // as of a table of the same name elsewhere
  twin.increment();
  EXPECT_EQ(Counter::value("flood", "floodEntryIs"), 2u);
}

// Whoever hears of a row finds it, or finds it gone; so do the readers of another process.
TEST_F(TablesTest, ARowIsInForceBeforeItsObserversHearOfIt) {
  Tables const writer(Mode::writer), reader(Mode::keyshadow, writer.folder);
  Host const first = host(10, 1, 5), second = host(10, 1, 6);
  FloodEntry const vtep = flood(10, 7);
  Texts seen;
  auto const note = [&](std::string const& here, std::string const& there) {
    seen.push_back(here.empty() ? "gone" : here);
    EXPECT_EQ(there, here);
  };
  auto const ofHosts = makePtr<TestSupport::Watcher>(*writer.hostTable, [&](auto, auto) {
    writer.endTurn();
    note(text(*writer.hostTable), text(*reader.hostTable));
  });
  auto const ofFloods = makePtr<TestSupport::Watcher>(*writer.floodTable, [&](auto, auto) {
    writer.endTurn();
    note(text(*writer.floodTable), text(*reader.floodTable));
  });
  writer.hostTable->hostIs(first);
  writer.hostTable->hostCommit(&second);
  writer.hostTable->hostDel(first.key());
  writer.floodTable->floodEntryIs(vtep);
  writer.floodTable->floodEntryDelAll();
  EXPECT_EQ(seen, (Texts{"10:1>5/1/16 ", "10:1>6/1/16 ", "gone", "10>7 ", "gone"}));
}

TEST_F(TablesTest, ReachReadersByTheirPlaceInTheDirectory) {
  auto const writers = makePtr<Orb::Dir>("site/a"), readers = makePtr<Orb::Dir>("site/a");
  auto const writer = QorEvpn::hostTableIs(*writers, "host"), reader = QorEvpn::hostTableIs(*readers, "host");
  mount(writer);
  EXPECT_TRUE(std::filesystem::exists(folder.path() + "/%2Fsite%5C%2Fa%2Fhost.table"));
  auto const site = makePtr<Orb::Dir>("site"), a = makePtr<Orb::Dir>("a");
  site->entryIs(a);
  mount(QorEvpn::hostTableIs(*a, "host"));
  mount(reader, Mode::keyshadow);
  EXPECT_EQ(reader->hostControl()->mountStatus(), MountStatus::mounted);
  auto const watcher = recorder<MacVniPair>(reader, "host");
  EXPECT_TRUE(writer->hostControl()->quiesced());
  for (uint32_t m = 1; m <= 10; ++m) writer->hostIs(host(m % 2, m, m));
  EXPECT_FALSE(writer->hostControl()->quiesced());
  writer->endTurn();
  EXPECT_TRUE(writer->hostControl()->quiesced());
  EXPECT_EQ(reader->deliver().changes, 10u);
  EXPECT_EQ(log.size(), 10u);
  EXPECT_TRUE(reader->hostControl()->quiesced());
  EXPECT_EQ(entryOf(*reader->hostWalkAfter(host(1, 7, 0).key()).next()), entry(8, 8));
  EXPECT_EQ(Orb::attribute(*reader, "host").as<std::vector<Orb::Value>>().size(), 10u);
  writer->unmount();
  EXPECT_FALSE(writer->hostControl()->quiesced());
  reader->deliver();
  EXPECT_EQ(reader->hostControl()->mountStatus(), MountStatus::writerGone);
}

TEST_F(TablesTest, RefuseWhatTheirStateDoesNotAllow) {
  auto const table = QorEvpn::hostTableFactory("host");
  Brine::BrineMap<Host> map;
  auto const expectError = [](std::function<void()> const& call, std::string const& message) {
    EXPECT_THAT(call, ThrowsMessage<Orb::Error>(message));
  };
  expectError([&] { table->hostIs(Host()); }, "write to read-only Brine table");
  expectError([&] { table->hostDel(MacVniPair()); }, "remove to read-only Brine table");
  table->mount(optionsOf(folder, Mode::reader));
  expectError([&] { table->mount(optionsOf(folder, Mode::reader)); },
              "/host is already mounted, mountStatus:no table");
  expectError([&] { map.notifyingIs(true); },
              "BrineMap::notifyingIs() not allowed at this time, initialized:false");
  expectError([&] { map.cleanup(); }, "trying to cleanup uninitialized brine.");
}

TEST_F(TablesTest, HandDamageToTheirHandlerAndGoOn) {
  Tables tables(Mode::writer);
  auto const& table = tables.hostTable;
  for (uint32_t m : {1u, 2u, 3u, 4u}) table->hostIs(host(10, m, m));
  table->endTurn();
  Tables const readers(Mode::keyshadow, tables.folder);
  readers.deliver();
  MacVniPair const key = host(10, 3, 3).key();
  tables.damage(host(10, 3, 3));
  EXPECT_EQ(readers.hostTable->host(key), Host());
  EXPECT_EQ(table->host(key), Host());
  table->hostDelAll();
  EXPECT_THAT(tables.reports, ElementsAre("row 2 is damaged", "row 2 is damaged"));
  EXPECT_EQ(table->statistics().rows, 2u);
  EXPECT_EQ(table->hostDel(key), Host());
  table->hostDelAll();
  EXPECT_EQ(table->corruptions(), 3u);
  EXPECT_EQ(table->statistics().rows, 0u);
  EXPECT_TRUE(table->check().empty());
  table->endTurn();
  EXPECT_EQ(readers.hostTable->deliver().changes, 4u);
  // Damage elsewhere, that who hears of the removal meets.
  table->hostIs(host(10, 1, 1));
  table->endTurn();
  auto const watcher = makePtr<TestSupport::Watcher>(
      *table->hostControl(), [](Orb::AttributeId, void const*) { throw Brine::RowDamage("elsewhere"); });
  EXPECT_THROW(table->hostDel(host(10, 1, 1).key()), Brine::RowDamage);
  EXPECT_EQ(table->corruptions(), 3u);
}

TEST_F(TablesTest, ChangeRolesWithTheirControlWhenTheLastReferenceGoes) {
  auto const isAlive = [] { return !Counter::countersOf("roles").empty(); };
  auto table = QorEvpn::hostTableFactory("roles");
  table = nullptr;
  EXPECT_FALSE(isAlive());
  table = QorEvpn::hostTableFactory("roles");
  Ptr<Brine::CollectionControl> control = table->hostControl();
  EXPECT_FALSE(control->entity());
  table = nullptr;
  ASSERT_TRUE(isAlive());
  EXPECT_EQ(control->entity()->name().text(), "roles");
  EXPECT_FALSE(Orb::ptrCast<HostTable const>(control->entity())->hostControl());
  control = nullptr;
  EXPECT_FALSE(isAlive());
  table = QorEvpn::hostTableFactory("roles");
  mount(table);
  auto const watcher =
      makePtr<TestSupport::Watcher>(*table->hostControl(), [&](Orb::AttributeId, void const*) {
        table = nullptr;
        EXPECT_TRUE(isAlive()) << "until its call returns";
      });
  table.get()->hostIs(host(10, 1, 5));
  EXPECT_FALSE(isAlive());
}

}  // namespace
}  // namespace MachineTests
