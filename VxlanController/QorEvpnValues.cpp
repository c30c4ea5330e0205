#include "VxlanController/QorEvpnValues.h"

#include "Orb/Text.h"
#include "Orb/Value.h"

namespace QorEvpn {

namespace {

template <class T>
constexpr bool isFitForSharedMemory = std::is_trivially_copyable_v<T>&& std::is_standard_layout_v<T>&&
    std::has_unique_object_representations_v<T>;
static_assert(isFitForSharedMemory<MacVniPair> && sizeof(MacVniPair) == 12);
static_assert(isFitForSharedMemory<Host> && sizeof(Host) == 24);
static_assert(isFitForSharedMemory<VniVtepPair> && sizeof(VniVtepPair) == 8);
static_assert(isFitForSharedMemory<FloodEntry> && sizeof(FloodEntry) == 8);

[[maybe_unused]] Orb::ValueType const* const registered[] = {
    &Orb::valueType<MacVniPair>(), &Orb::valueType<Host>(), &Orb::valueType<VniVtepPair>(),
    &Orb::valueType<FloodEntry>()};

}  // namespace

void appendText(std::string& out, MacVniPair const& key) {
  Orb::appendTexts(out, "Value('QorEvpn::MacVniPair', ** {'macAddr': ", key.macAddr(), ", 'vni': ", key.vni(),
                   "})");
}

MacVniPair parseText(Orb::TextCursor& text, std::type_identity<MacVniPair>) {
  text.expect("Value('QorEvpn::MacVniPair', ** {");
  text.expect("'macAddr': ");
  auto const macAddr = Orb::parseAttribute<Wirix::EthAddr>(text, "macAddr");
  text.expect(", 'vni': ");
  auto const vni = Orb::parseAttribute<Vxlan::Vni>(text, "vni");
  text.expect("})");
  return {macAddr, vni};
}

void appendText(std::string& out, Host const& host) {
  Orb::appendTexts(out, "Value('QorEvpn::Host', ** {'key': ", host.key(), ", 'vtepAddr': ", host.vtepAddr(),
                   ", 'seqNo': ", host.seqNo(), ", 'preference': ", host.preference(), "})");
}

Host parseText(Orb::TextCursor& text, std::type_identity<Host>) {
  text.expect("Value('QorEvpn::Host', ** {");
  text.expect("'key': ");
  Host host(Orb::parseAttribute<MacVniPair>(text, "key"));
  text.expect(", 'vtepAddr': ");
  host.vtepAddrIs(Orb::parseAttribute<Wirix::IpAddr>(text, "vtepAddr"));
  text.expect(", 'seqNo': ");
  host.seqNoIs(Orb::parseAttribute<Seqno32>(text, "seqNo"));
  text.expect(", 'preference': ");
  host.preferenceIs(Orb::parseAttribute<uint8_t>(text, "preference"));
  text.expect("})");
  return host;
}

void appendText(std::string& out, VniVtepPair const& key) {
  Orb::appendTexts(out, "Value('QorEvpn::VniVtepPair', ** {'vni': ", key.vni(),
                   ", 'vtepAddr': ", key.vtepAddr(), "})");
}

VniVtepPair parseText(Orb::TextCursor& text, std::type_identity<VniVtepPair>) {
  text.expect("Value('QorEvpn::VniVtepPair', ** {");
  text.expect("'vni': ");
  auto const vni = Orb::parseAttribute<Vxlan::Vni>(text, "vni");
  text.expect(", 'vtepAddr': ");
  auto const vtepAddr = Orb::parseAttribute<Wirix::IpAddr>(text, "vtepAddr");
  text.expect("})");
  return {vni, vtepAddr};
}

void appendText(std::string& out, FloodEntry const& entry) { appendText(out, entry.key()); }

FloodEntry parseText(Orb::TextCursor& text, std::type_identity<FloodEntry>) {
  return FloodEntry(Orb::parseAttribute<VniVtepPair>(text, "key"));
}

}  // namespace QorEvpn

std::vector<Orb::ValueAttribute> Orb::ValueTraits<QorEvpn::MacVniPair>::attributes() {
  return {readOnly<&QorEvpn::MacVniPair::macAddr>("macAddr"), readOnly<&QorEvpn::MacVniPair::vni>("vni")};
}

std::vector<Orb::ValueAttribute> Orb::ValueTraits<QorEvpn::Host>::attributes() {
  using QorEvpn::Host;
  return {readOnly<&Host::key>("key"), readWrite<&Host::vtepAddr, &Host::vtepAddrIs>("vtepAddr"),
          readWrite<&Host::seqNo, &Host::seqNoIs>("seqNo"),
          readWrite<&Host::preference, &Host::preferenceIs>("preference")};
}

std::vector<Orb::ValueAttribute> Orb::ValueTraits<QorEvpn::VniVtepPair>::attributes() {
  return {readOnly<&QorEvpn::VniVtepPair::vni>("vni"), readOnly<&QorEvpn::VniVtepPair::vtepAddr>("vtepAddr")};
}

std::vector<Orb::ValueAttribute> Orb::ValueTraits<QorEvpn::FloodEntry>::attributes() {
  return {readOnly<&QorEvpn::FloodEntry::key>("key")};
}
