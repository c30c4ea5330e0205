#include <gmock/gmock.h>

#include "VxlanController/Fixture.h"

namespace MachineTests {
namespace {

using QorEvpnTxSmTest = TransmitFixture;

TEST_F(QorEvpnTxSmTest, TakesANameForTheNumberAtItsBeginning) {
  make();
  for (auto const& [name, vni] : std::map<std::string, uint32_t>{
           {"16777215", 16777215}, {"abc", 0}, {"4294967301", 5}, {" 7x", 7}, {"+8", 8}, {"010", 10}}) {
    vniIs(name);
    EXPECT_TRUE(root->vniFdbStatusSm(Vni(vni))) << name;
    dir->entryDel(Orb::Name(name));
    EXPECT_FALSE(root->vniFdbStatusSm(Vni(vni))) << name;
  }
  counts();
  traced();
  auto const isRefused =
      testing::ThrowsMessage<Orb::RangeError>("Vni::value < Vni::min or > Vni::max not allowed");
  for (std::string const name : {"-1", "16777216"}) {
    EXPECT_THAT([&] { vniIs(name); }, isRefused) << name;
    EXPECT_THAT([&] { dir->entryDel(Orb::Name(name)); }, isRefused) << name;
    std::string const record = "3 QorEvpnTxSm()::handleVniFdbStatus(" + name + ")\n";
    EXPECT_EQ(traced(), record + record);
  }
  EXPECT_EQ(counts(), Counts());
}

TEST_F(QorEvpnTxSmTest, AVanishedVnisOutputsAreEmptiedInOrderAndItsChildIsOutBeforeItsCleanup) {
  Texts seen;
  auto const sink = Trace::sinkIs({});
  Trace::sinkIs([&](Trace::Record const& record) {
    if (record.text == "VniFdbStatusSm(10)::cleanup()")
      seen.push_back(tables() + std::to_string(root->vniFdbStatusSm().members()));
  });
  auto const note = [&](Orb::Notifier const& source, std::string const& name) {
    return makePtr<TestSupport::Watcher>(source, [&seen, name](auto, auto) { seen.push_back(name); });
  };
  for (bool const all : {false, true}) {
    serve();
    fdb10->macVtepTableIs(entry(1, 11)), listOf(fdb10, {{12, true}});
    std::vector const watchers = {note(*floodTable, "f"), note(*hostTable, "h"), note(*brIds, "b")};
    all ? root->cleanup() : static_cast<void>(dir->entryDel("10"));
    EXPECT_FALSE(sm10->initialized());
  }
  Trace::sinkIs(sink);
  EXPECT_EQ(seen, (Texts{"b", "h", "f", "| | 0", "b", "h", "f", "| | 0"}));
}

TEST_F(QorEvpnTxSmTest, ADamagedRowEndsItsWalkAndAnotherErrorTheHandler) {
  for (uint32_t m : {1u, 2u, 3u}) hostTable->hostIs(host(10, m, m)), floodTable->floodEntryIs(flood(10, m));
  make();
  damage(host(10, 2, 2)), damage(flood(10, 2));
  for (uint32_t vnis : {1u, 2u, 0u}) {  // as many are swept; where none is, one is started
    hostTable->hostIs(host(10, 1, 1)), floodTable->floodEntryIs(flood(10, 1));
    traced(), counts();
    if (vnis == 0) fdb10 = vniIs("10");
    if (vnis > 0)
      QorEvpn::cleanupStaleVniEntries(root, vnis == 1 ? std::set{Vni(10)} : std::set{Vni(10), Vni(11)});
    EXPECT_EQ(std::exchange(reports, {}), (Texts{"row 1 is damaged", "row 1 is damaged"}));
    EXPECT_EQ(counts(), (Counts{0, 1, 1, 0, 1, 1}));
    std::array<uint32_t, 9> levels{};
    for (std::string const& line : traces.take()) ++levels.at(static_cast<size_t>(line[0] - '0'));
    EXPECT_EQ(levels[8], 2u);
    EXPECT_EQ(levels[3], levels[4] + vnis);  // whatever was entered returned
  }
  hostTable->hostIs(host(11, 1, 1));
  auto const watcher = makePtr<TestSupport::Watcher>(
      *hostTable, [](auto, auto) { throw Brine::CorruptionError("elsewhere"); });
  EXPECT_THROW(QorEvpn::cleanupStaleVniEntries(root, {Vni(11)}), Brine::CorruptionError);
  // A notifiee's error leaves through the setter that it began with; what was changed stays.
  EXPECT_THROW(fdb10->macVtepTableIs(entry(4, 11)), Brine::CorruptionError);
  EXPECT_EQ(fdb10->macVtepTables(), 1u);
  EXPECT_EQ(hostTable->host(host(10, 4, 11).key()), host(10, 4, 11));
  EXPECT_THROW(hostTable->hostDelAll(), Brine::CorruptionError);
  EXPECT_EQ(reports, Texts()) << "it is no damage of this table";
}

TEST_F(QorEvpnTxSmTest, ABridgeIdentifierOfAnotherTypeEndsTheProcess) {
  make();
  Bridging::BridgeId const other(0x01000005);
  brIds->brIdListIs(other, true);
  std::string const type = "assertion failed: brType\\(\\) == brTypeVni\\(\\), function .*vni";
  EXPECT_DEATH(root->publishBrId(other), type);
  EXPECT_DEATH(root->unpublishBrId(other), type);
  EXPECT_DEATH(root->cleanupStaleBrIdEntries(), type);
}

}  // namespace
}  // namespace MachineTests
