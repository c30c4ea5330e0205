#include "VxlanController/Fixture.h"
#include "VxlanController/QorEvpnModeSm.h"

namespace MachineTests {
namespace {

using Object = Ptr<Orb::PtrInterface const>;

/// The five machines.
class GenericInterface : public TransmitFixture {
 protected:
  Ptr<Controllerdb::Status> status = makePtr<Controllerdb::Status>("controllerdb");
  Ptr<QorEvpn::EvpnCapability> capability = makePtr<QorEvpn::EvpnCapability>("capability");
  Ptr<QorEvpn::QorEvpnConfig> config = makePtr<QorEvpn::QorEvpnConfig>("config");
  Ptr<QorEvpn::QorEvpnIntegrationModeSm> mode =
      QorEvpn::qorEvpnIntegrationModeSmFactory(status, capability, config);
  Ptr<MacVtepFloodListV2> list = listOf(vniIs("10", 10), {{12, true}});
  Ptr<QorEvpnTxSm> tx = make();
  Ptr<VniFdbStatusSm> vni = tx->vniFdbStatusSm(Vni(10));
  Ptr<MacVtepFloodListSm> floodList = vni->macVtepFloodListSm(bum);
  Ptr<QorEvpnRxSm> rx =
      VxlanController::qorEvpnRxSmFactory(hostTable, floodTable, makePtr<VniStatusDirV2>("other"));
};

// What an agent takes the address of takes its arguments as they are declared to: by value.
static_assert(std::is_same_v<decltype(QorEvpn::hostTableFactory), Ptr<HostTable>(Orb::Name)>);
static_assert(std::is_same_v<decltype(QorEvpn::floodTableFactory), Ptr<FloodTable>(Orb::Name)>);
static_assert(std::is_same_v<decltype(QorEvpn::qorEvpnTxSmFactory),
                             Ptr<QorEvpnTxSm>(Ptr<Orb::Dir const>, Ptr<VniStatusDirV2 const>,
                                              Ptr<QorBrIdList>, Ptr<HostTable>, Ptr<FloodTable>)>);
[[maybe_unused]] constexpr void (QorEvpnTxSm::*ofName)(Orb::Name) = &QorEvpnTxSm::handleVniFdbStatus;
[[maybe_unused]] constexpr void (QorEvpnTxSm::*ofVni)(Vni) = &QorEvpnTxSm::handleVniStatusFromEvpn;
[[maybe_unused]] constexpr void (MacVtepFloodListSm::*ofVtep)(IpAddr) = &MacVtepFloodListSm::handleVtepIp;
[[maybe_unused]] constexpr bool (MacVtepFloodListSm::*ofVtepAsked)(IpAddr) const =
    &MacVtepFloodListSm::floodIpProvidedByEvpn;

/// An object by its type, a collection by its keys, another value by its text.
std::string shown(Orb::Value const& value) {
  if (value.type() == Orb::valueType<Object>()) {
    auto const object = value.as<Object>();
    return object ? std::string(object->fwkType().name()) : "null";
  }
  if (value.type() != Orb::valueType<std::vector<Orb::Value>>()) return value.text();
  std::string keys = "[ ";
  for (Orb::Value const& key : value.as<std::vector<Orb::Value>>()) keys += key.text() + " ";
  return keys + "]";
}

TEST_F(GenericInterface, OffersWhatTheFileBesideThisLists) {
  std::string all;
  for (Object const& machine : std::initializer_list<Object>{mode, tx, vni, floodList, rx}) {
    Orb::TypeDescriptor const& type = machine->fwkType();
    Orb::appendTexts(all, type.name(), '\n');
    for (Orb::AttributeInfo const& attribute : type.attributes()) {
      Orb::appendTexts(all, attribute.id, ' ', attribute.name, attribute.invoke ? "()" : "");
      if (attribute.read) Orb::appendTexts(all, " = ", shown(attribute.read(*machine)));
      Orb::appendTexts(all, attribute.write ? ", may be set\n" : "\n");
    }
    EXPECT_EQ(Orb::TypeDescriptor::find(type.name()), &type);
    EXPECT_EQ(machine->orbFwkActivity(), nullptr);
  }
  EXPECT_EQ(all, TestSupport::sourceText("tests/VxlanController/GenericInterfaceTest.list"));
}

TEST_F(GenericInterface, AccessesByIdentifierAndByNameAndRefusesOthers) {
  Orb::AttributeId const first = Orb::firstOwnAttribute;
  EXPECT_EQ(Orb::attribute(*mode, "controllerdbStatus").as<Object>(), status);
  EXPECT_EQ(Orb::attribute(*mode, first + 1).as<Object>(), capability);
  Orb::attributeIs(*mode, "initialized", true);
  EXPECT_TRUE(Orb::attribute(*mode, first + 4).as<bool>());
  EXPECT_THROW(Orb::attributeIs(*mode, first + 4, uint32_t{0}), Orb::WrongTypeError);
  EXPECT_TRUE(mode->initialized());
  EXPECT_THROW(Orb::attributeIs(*mode, "evpnCapability", Object()), Orb::AttributeAccessError);
  EXPECT_THROW(Orb::attribute(*mode, "handleInitialized"), Orb::AttributeAccessError);
  EXPECT_THROW(Orb::attributeInvoke(*mode, "initialized"), Orb::AttributeAccessError);
  EXPECT_THROW(Orb::attributeInvoke(*tx, "publishBrId"), Orb::AttributeAccessError);
  EXPECT_THROW(Orb::attribute(*mode, "initialised"), Orb::UnknownAttributeError);
  EXPECT_THROW(Orb::attributeInvoke(*mode, first + 6), Orb::UnknownAttributeError);
  traced();
  Orb::attributeIs(*vni, "initialized", false);  // through the setter
  EXPECT_EQ(traced(), "3 VniFdbStatusSm(10)::handleInitialized()\n");
  EXPECT_EQ(tables(), "| 10>12 | 10 ");
  Orb::attributeInvoke(*floodList, "cleanup");
  EXPECT_EQ(tables(), "| | 10 ");
  // Removers give the input back, once.
  EXPECT_EQ(tx->vniDirDel(), dir);
  EXPECT_EQ(tx->vniDirDel(), nullptr);
  EXPECT_EQ(tx->vniStatusDirFromEvpnDel(), evpn);
  EXPECT_EQ(rx->hostTableDel(), hostTable);
  EXPECT_EQ(rx->floodTableDel(), floodTable);
}

}  // namespace
}  // namespace MachineTests
