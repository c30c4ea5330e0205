/// The entries of one VNI that the controller's sources told: one ledger a source.
///
/// A source that tells its state again has two ledgers until it is synced: `kept` with the entries that it
/// told before, `told` with those that it tells now. For a key in both ledgers the entry in `told` counts; a
/// numbered entry counts only if its sequence number is not lower, since a recording tells past entries
/// first.
#pragma once

#include <map>
#include <vector>

#include "DataModel/MacVtepV2.h"
#include "Orb/FlatMap.h"
#include "agent/feed/Sources.h"

namespace Agent {

/// A source's entry of a MAC.
struct Claim {
  Wirix::IpAddr vtep;
  Seqno32 seq;              ///< If the source numbers its entries.
  std::uint32_t order = 0;  ///< Otherwise: higher if the switch heard the MAC later; 0: at an unknown time.
  std::uint8_t preference = VxlanController::MacVtepV2::defaultPreference;
  std::uint32_t since = 0;  ///< When the source told it, in seconds of Unix time; 0: in an earlier run.
  friend bool operator==(Claim const&, Claim const&) = default;
};

/// A source's VTEP in a flood list.
struct FloodClaim {
  bool on = false;
  std::uint32_t since = 0;  ///< As in Claim.
};

/// A source's multipath entry.
struct MultipathClaim {
  std::vector<Wirix::IpAddr> vteps;
  std::uint32_t since = 0;  ///< As in Claim.
};

/// The entries that one source told of one VNI.
struct VniLedger {
  Orb::FlatMap<Wirix::EthAddr, Claim> macs;
  std::map<Wirix::EthAddr, std::map<Wirix::IpAddr, FloodClaim>> floods;
  std::map<Wirix::EthAddr, MultipathClaim> multipaths;
  bool serves = false;  ///< The source serves the VNI.

  FloodClaim const* flood(Wirix::EthAddr mac, Wirix::IpAddr vtep) const {
    auto const list = floods.find(mac);
    if (list == floods.end()) return nullptr;
    auto const entry = list->second.find(vtep);
    return entry == list->second.end() ? nullptr : &entry->second;
  }
  MultipathClaim const* multipath(Wirix::EthAddr mac) const {
    auto const found = multipaths.find(mac);
    return found == multipaths.end() ? nullptr : &found->second;
  }
  std::size_t entries() const {
    std::size_t count = macs.size() + multipaths.size();
    for (auto const& list : floods) count += list.second.size();
    return count;
  }
};

/// Both ledgers of one source for one VNI; the functions give the entry that counts, or null.
struct SourcePart {
  SourceId source;
  bool isNumbered;
  VniLedger told;
  VniLedger kept;

  Claim const* claim(Wirix::EthAddr mac) const {
    Claim const* const now = told.macs.find(mac);
    Claim const* const before = kept.macs.empty() ? nullptr : kept.macs.find(mac);
    bool const isOlder = now && before && isNumbered && now->seq < before->seq;
    return now && !isOlder ? now : before;
  }
  FloodClaim const* flood(Wirix::EthAddr mac, Wirix::IpAddr vtep) const {
    FloodClaim const* const now = told.flood(mac, vtep);
    return now ? now : kept.flood(mac, vtep);
  }
  MultipathClaim const* multipath(Wirix::EthAddr mac) const {
    auto const* const now = told.multipath(mac);
    return now ? now : kept.multipath(mac);
  }
  bool serves() const { return told.serves || kept.serves; }
  /// The source tells its state again: moves the entries of `told` to `kept`. For a key in both, the entry
  /// that counts stays.
  void begin();
};

}  // namespace Agent
