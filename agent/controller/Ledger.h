/// What sources told the controller about one VNI, each in a ledger of its own.
///
/// A source that begins to tell its state again has two: what it told before is kept beside what it tells
/// now, until it is whole. Of a key that stands in both, what it tells now counts; a numbered entry only if
/// its sequence number is not lower, for a recording tells what was before what is.
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
  Seqno32 seq;              ///< Of a source that numbers its entries.
  std::uint32_t order = 0;  ///< Else: the later a switch heard the MAC, the higher; 0: before anybody looked.
  std::uint8_t preference = VxlanController::MacVtepV2::defaultPreference;
  std::uint32_t since = 0;  ///< When it was told so, in seconds of Unix time; 0: in an earlier run.
  friend bool operator==(Claim const&, Claim const&) = default;
};

/// A source's VTEP in a flood list.
struct FloodClaim {
  bool on = false;
  std::uint32_t since = 0;  ///< As a Claim's.
};

struct VniLedger {
  Orb::FlatMap<Wirix::EthAddr, Claim> macs;
  std::map<Wirix::EthAddr, std::map<Wirix::IpAddr, FloodClaim>> floods;
  std::map<Wirix::EthAddr, std::vector<Wirix::IpAddr>> multipaths;
  bool serves = false;  ///< The source serves the VNI.

  FloodClaim const* flood(Wirix::EthAddr mac, Wirix::IpAddr vtep) const {
    auto const list = floods.find(mac);
    if (list == floods.end()) return nullptr;
    auto const entry = list->second.find(vtep);
    return entry == list->second.end() ? nullptr : &entry->second;
  }
  std::vector<Wirix::IpAddr> const* multipath(Wirix::EthAddr mac) const {
    auto const found = multipaths.find(mac);
    return found == multipaths.end() ? nullptr : &found->second;
  }
  std::size_t entries() const {
    std::size_t count = macs.size() + multipaths.size();
    for (auto const& list : floods) count += list.second.size();
    return count;
  }
};

/// One source's part in a VNI.
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
  std::vector<Wirix::IpAddr> const* multipath(Wirix::EthAddr mac) const {
    auto const* const now = told.multipath(mac);
    return now ? now : kept.multipath(mac);
  }
  bool serves() const { return told.serves || kept.serves; }
  /// What it told becomes what is kept, with what was kept already; of a key in both what counts.
  void begin();
};

}  // namespace Agent
