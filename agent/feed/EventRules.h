/// The keys and ops of a feed's lines, for the parser and the writer of events.
#pragma once

#include <array>

#include "agent/feed/Event.h"

namespace Agent {

/// Keys of an event as a set of bits.
enum Key : unsigned {
  keyT = 1,
  keyFrom = 2,
  keyOp = 4,
  keyVni = 8,
  keyMac = 16,
  keyVtep = 32,
  keyVteps = 64,
  keySeq = 128,
  keyPreference = 256,
  keyOn = 512,
  keyValue = 1024,
  keySource = 2048,
  keySince = 4096,
  keyName = 8192
};
inline constexpr std::array<std::pair<std::string_view, unsigned>, 14> keys{{{"t", keyT},
                                                                             {"from", keyFrom},
                                                                             {"op", keyOp},
                                                                             {"vni", keyVni},
                                                                             {"mac", keyMac},
                                                                             {"vtep", keyVtep},
                                                                             {"vteps", keyVteps},
                                                                             {"seq", keySeq},
                                                                             {"preference", keyPreference},
                                                                             {"on", keyOn},
                                                                             {"value", keyValue},
                                                                             {"source", keySource},
                                                                             {"since", keySince},
                                                                             {"name", keyName}}};
/// Every op may have these.
inline constexpr unsigned commonKeys = keyT | keyFrom | keyOp | keySource;

inline constexpr std::uint64_t sourceMax = 1'000'000, sinceMax = 0xFFFFFFFF;

/// Which keys an op takes from either origin.
struct OpRule {
  std::string_view name;
  Op op;
  unsigned required;
  unsigned fromController;
  unsigned fromEvpn;
};
inline constexpr unsigned macKeys = keyVni | keyMac | keyVtep | keySeq | keyPreference;
inline constexpr unsigned floodKeys = keyVni | keyVtep | keyOn;
inline constexpr unsigned notThere = ~0U;  ///< Instead of keys: no op of that side's.
inline constexpr std::array<OpRule, opCount> opRules{{
    {"vni", Op::vni, keyVni, keyVni, notThere},
    {"vni-del", Op::vniDel, keyVni, keyVni, notThere},
    {"mac", Op::mac, keyVni | keyMac | keyVtep, macKeys | keySince, macKeys | keySince},
    {"mac-del", Op::macDel, keyVni | keyMac, macKeys, macKeys},
    {"flood", Op::flood, keyVni | keyVtep, floodKeys | keyMac | keySince, floodKeys | keySince},
    {"flood-del", Op::floodDel, keyVni | keyVtep, floodKeys | keyMac, floodKeys},
    {"multipath", Op::multipath, keyVni | keyMac | keyVteps, keyVni | keyMac | keyVteps | keySince, notThere},
    {"multipath-del", Op::multipathDel, keyVni | keyMac, keyVni | keyMac | keyVteps, notThere},
    {"enabled", Op::enabled, keyValue, keyValue, notThere},
    {"capability", Op::capability, keyValue, notThere, keyValue},
    {"synced", Op::synced, 0, 0, 0},
    {"recording", Op::recording, keyName, keyName | keySeq, keyName | keySeq},
    {"source", Op::source, keySource | keyName, keyName | keyOn, keyName},
    {"begin", Op::begin, keySource, 0, 0},
    {"whole", Op::whole, keySource | keyValue, keyValue, keyValue},
    {"withdraw", Op::withdraw, keySource | keyValue, keyValue, keyValue},
    {"settled", Op::settled, keyValue, keyValue, keyValue},
    {"number", Op::number, keyVni | keyMac | keyVtep, keyVni | keyMac | keyVtep | keySeq, notThere},
    {"frozen", Op::frozen, keyVni | keyMac | keyValue, keyVni | keyMac | keyValue, notThere},
    {"listed", Op::listed, keyVni | keyValue, keyVni | keyValue, notThere},
    {"state-end", Op::stateEnd, 0, 0, 0},
}};

inline constexpr OpRule const& ruleOf(Op op) { return opRules[static_cast<std::size_t>(op)]; }
static_assert(
    [] {
      for (std::size_t i = 0; i < opCount; ++i) {
        if (opRules[i].op != static_cast<Op>(i)) return false;
      }
      return true;
    }(),
    "the rules stand in the order of their ops");

}  // namespace Agent
