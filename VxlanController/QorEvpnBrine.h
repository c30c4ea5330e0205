#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Brine/EntityTable.h"
#include "Orb/Dir.h"
#include "VxlanController/QorEvpnValues.h"

/// How the exchanged rows lie in shared memory.
template <>
struct Brine::Codec<QorEvpn::Host> {
  using Key = QorEvpn::MacVniPair;
  static constexpr std::string_view rowType = "QorEvpn::Host";
  /// MAC address; VNI; VTEP address in the high half and sequence number in the low one; preference.
  static constexpr unsigned keyWords = 2, rowWords = 4;

  static Key key(QorEvpn::Host const& row) { return row.key(); }
  static void encodeKey(Key const& key, uint64_t* words) {
    words[0] = key.macAddr().value();
    words[1] = key.vni().value();
  }
  static void encode(QorEvpn::Host const& row, uint64_t* words) {
    encodeKey(row.key(), words);
    words[2] = uint64_t{row.vtepAddr().value()} << 32 | row.seqNo().value();
    words[3] = row.preference();
  }
  static std::optional<Key> decodeKey(uint64_t const* words) {
    if (words[0] >> 48 != 0 || words[1] > Vxlan::Vni::max) return std::nullopt;
    return Key(Wirix::EthAddr::ofValue(words[0]), Vxlan::Vni(words[1]));
  }
  static bool decode(uint64_t const* words, QorEvpn::Host& row) {
    if (words[0] >> 48 != 0 || words[1] > Vxlan::Vni::max || words[3] > UINT8_MAX) return false;
    // In place: copying what was just stored field by field would wait for the stores.
    std::construct_at(&row, Key(Wirix::EthAddr::ofValue(words[0]), Vxlan::Vni(words[1])));
    row.vtepAddrIs(Wirix::IpAddr(static_cast<uint32_t>(words[2] >> 32)));
    row.seqNoIs(Seqno32(static_cast<uint32_t>(words[2])));
    row.preferenceIs(static_cast<uint8_t>(words[3]));
    return true;
  }
  /// As `MacVniPair::hash()`, for any words.
  [[gnu::always_inline]] static uint32_t hash(uint64_t const* words) {
    return QorEvpn::Impl::wangHash(Orb::hashMix(words[0]) ^ static_cast<uint32_t>(words[1]));
  }
  static uint32_t column(uint64_t const* words) { return static_cast<uint32_t>(words[1]); }
};

template <>
struct Brine::Codec<QorEvpn::FloodEntry> {
  using Key = QorEvpn::VniVtepPair;
  static constexpr std::string_view rowType = "QorEvpn::FloodEntry";
  /// VNI in the high half and VTEP address in the low one.
  static constexpr unsigned keyWords = 1, rowWords = 1;

  static Key key(QorEvpn::FloodEntry const& row) { return row.key(); }
  static void encodeKey(Key const& key, uint64_t* words) {
    words[0] = uint64_t{key.vni().value()} << 32 | key.vtepAddr().value();
  }
  static void encode(QorEvpn::FloodEntry const& row, uint64_t* words) { encodeKey(row.key(), words); }
  static std::optional<Key> decodeKey(uint64_t const* words) {
    auto const vni = static_cast<uint32_t>(words[0] >> 32);
    if (vni > Vxlan::Vni::max) return std::nullopt;
    return Key(Vxlan::Vni(vni), Wirix::IpAddr(static_cast<uint32_t>(words[0])));
  }
  static bool decode(uint64_t const* words, QorEvpn::FloodEntry& row) {
    std::optional<Key> const key = decodeKey(words);
    if (key) row = QorEvpn::FloodEntry(*key);
    return key.has_value();
  }
  /// As `VniVtepPair::hash()`, for any words.
  static uint32_t hash(uint64_t const* words) {
    auto const vtepAddr = Wirix::IpAddr(static_cast<uint32_t>(words[0]));
    return QorEvpn::Impl::wangHash(vtepAddr.hash() ^ static_cast<uint32_t>(words[0] >> 32));
  }
  static uint32_t column(uint64_t const* words) { return static_cast<uint32_t>(words[0] >> 32); }
};

namespace QorEvpn {

/// The hosts that one side knows: which VTEP a MAC address in a VNI lives behind. One process writes them,
/// any number reads. The transmit machines hold it writable, the receive machine reads one that the EVPN side
/// writes.
///
/// Attributes: `host`, notified with the key of the row that was written, removed or changed by another
/// process; `hostControl`, notified without a key. Counters, under the table's name: "hostIs", "hostDel",
/// "hostNotify".
///
/// Mounting, delivery, statistics and the corruption handler: see `Brine::EntityTable`. Writes to a table
/// that is not mounted as writer raise `Brine::ReadOnlyError`, writes that need room where there is none
/// `Brine::SpaceError`.
class HostTable : public Brine::EntityTable<Host> {
 public:
  static constexpr Orb::Attribute<MacVniPair> hostAttr{256};
  static constexpr Orb::Scalar hostControlAttr{257};
  using HostTableZeroReferencesNotifiee = ZeroReferencesNotifiee;

  explicit HostTable(Orb::Name name);
  Orb::TypeDescriptor const& fwkType() const override;

  /// The key's row, or `Host()` where there is none or it is damaged; damage goes to `handleCorruption()`.
  Host host(MacVniPair const& key) const { return row(key); }
  /// Inserts or overwrites, also an equal row; notifies.
  void hostIs(Host const& host) { rowIs(host); }
  /// The same for a row in place; the quickest where its key was walked or written last. Not null.
  void hostCommit(Host const* host) { rowCommit(host); }
  /// Removes and returns the row; notifies. `Host()` and no notification where there is none.
  Host hostDel(MacVniPair const& key) { return rowDel(key); }
  /// Removes row by row through `hostDel()`. Stops at damage, which goes to `handleCorruption()`.
  void hostDelAll() { rowDelAll(); }

  /// Walks over all rows, over those of a VNI, over those behind a key's place; see `Brine::Cursor`. Each
  /// row's VNI is tested, in a dense column.
  ///
  ///   for (auto walk = table->hostWalk(vni); Host const* row = walk.next();) ...
  Brine::Cursor<Host> hostWalk() const { return rows().walk(); }
  Brine::Cursor<Host> hostWalk(Vxlan::Vni vni) const { return rows().walk(vni.value()); }
  Brine::Cursor<Host> hostWalkAfter(MacVniPair const& key) const { return rows().walkAfter(key); }
  /// A copy of all rows, sorted by key. Raises `Brine::CorruptionError`.
  std::vector<Host> hostSorted() const { return rows().sorted(); }
  /// Hints that these keys, some tens, are looked up, written or removed next.
  void hostStage(std::span<MacVniPair const> keys) const { rows().stage(keys); }

  /// The table's callbacks: a row was changed by its writer, the writer went quiet or busy, the mount status
  /// changed.
  void hostNotify(MacVniPair const& key) { rowNotify(key); }
  void hostNotifyQuiesced(bool quiesced) { notifyQuiesced(quiesced); }
  void hostNotifyMountStatus() { notifyMountStatus(); }

  Orb::Ptr<Brine::CollectionControl> const& hostControl() const { return control(); }
  void hostControlIs(Orb::Ptr<Brine::CollectionControl> const& control) { controlIs(control); }
};

/// The VTEPs in the flood list of each VNI that one side knows. As `HostTable`, with the attributes
/// `floodEntry` and `floodEntryControl` and the counters "floodEntryIs", "floodEntryDel", "floodEntryNotify".
class FloodTable : public Brine::EntityTable<FloodEntry> {
 public:
  static constexpr Orb::Attribute<VniVtepPair> floodEntryAttr{256};
  static constexpr Orb::Scalar floodEntryControlAttr{257};
  using FloodTableZeroReferencesNotifiee = ZeroReferencesNotifiee;

  explicit FloodTable(Orb::Name name);
  Orb::TypeDescriptor const& fwkType() const override;

  FloodEntry floodEntry(VniVtepPair const& key) const { return row(key); }
  void floodEntryIs(FloodEntry const& floodEntry) { rowIs(floodEntry); }
  void floodEntryCommit(FloodEntry const* floodEntry) { rowCommit(floodEntry); }
  FloodEntry floodEntryDel(VniVtepPair const& key) { return rowDel(key); }
  void floodEntryDelAll() { rowDelAll(); }

  Brine::Cursor<FloodEntry> floodEntryWalk() const { return rows().walk(); }
  Brine::Cursor<FloodEntry> floodEntryWalk(Vxlan::Vni vni) const { return rows().walk(vni.value()); }
  Brine::Cursor<FloodEntry> floodEntryWalkAfter(VniVtepPair const& key) const {
    return rows().walkAfter(key);
  }
  std::vector<FloodEntry> floodEntrySorted() const { return rows().sorted(); }
  void floodEntryStage(std::span<VniVtepPair const> keys) const { rows().stage(keys); }

  void floodEntryNotify(VniVtepPair const& key) { rowNotify(key); }
  void floodEntryNotifyQuiesced(bool quiesced) { notifyQuiesced(quiesced); }
  void floodEntryNotifyMountStatus() { notifyMountStatus(); }

  Orb::Ptr<Brine::CollectionControl> const& floodEntryControl() const { return control(); }
  void floodEntryControlIs(Orb::Ptr<Brine::CollectionControl> const& control) { controlIs(control); }
};

/// Build a table, not mounted, with notification on.
Orb::Ptr<HostTable> hostTableFactory(Orb::Name name);
Orb::Ptr<FloodTable> floodTableFactory(Orb::Name name);

/// The same as a named child of a directory.
Orb::Ptr<HostTable> hostTableIs(Orb::Dir& dir, Orb::Name const& name);
Orb::Ptr<FloodTable> floodTableIs(Orb::Dir& dir, Orb::Name const& name);

}  // namespace QorEvpn

extern template class Brine::Table<QorEvpn::Host>;
extern template class Brine::Table<QorEvpn::FloodEntry>;
