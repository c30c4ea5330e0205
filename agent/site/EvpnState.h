/// Agent::EvpnState: what the EVPN side of a site tells the agent about itself, in at most one row of the
/// table `learned/state`. It has a table of its own, so that the agent can read it before it reads a route,
/// and it stays when the EVPN side ends.
///
/// The agent takes the capability from this row if the row tells it, whatever its own feeds say. If there is
/// no table or no row, or the row does not tell it, the agent takes it from its feeds. An EVPN side of
/// another maker need not write this table; its other tables are then taken for whole.
///
/// The agent writes the same row into `exported/state` about the tables that it exports, without a
/// capability.
#pragma once

#include <optional>

#include "Brine/Table.h"
#include "Orb/Hash.h"
#include "agent/base/Loop.h"
#include "agent/site/Site.h"

namespace Agent {

struct EvpnState {
  static constexpr std::string_view file = "state";

  /// Whether the speaker has a session over which it exchanges EVPN routes. `assumed`: there is no speaker
  /// that could tell, but rows come from other sites; so it counts as on unless a feed of the agent says
  /// otherwise.
  enum class Capability : std::uint16_t { unsaid, off, on, assumed };
  Capability capability = Capability::unsaid;
  /// All routes that the speaker knows are in the tables. The row is written after them: a reader that sees
  /// the row and then has the tables delivered has all routes.
  bool isWhole = false;
  /// In the agent's row: the entries of its own sources are in the tables.
  bool hasOwn = false;
  friend bool operator==(EvpnState const&, EvpnState const&) = default;
};

/// "not said", "off", "on", "assumed".
std::string_view toText(EvpnState::Capability capability);
/// "whole, capability on", "not whole, capability not said".
void appendText(std::string& out, EvpnState const& state);

}  // namespace Agent

template <>
struct Brine::Codec<Agent::EvpnState> {
  using Key = std::uint64_t;  ///< 0: there is one row.
  static constexpr std::string_view rowType = "Agent::EvpnState";
  /// The key; the capability, whether it is whole in bit 8, and whether it has its own in bit 9.
  static constexpr unsigned keyWords = 1, rowWords = 2;

  static Key key(Agent::EvpnState const&) { return 0; }
  static void encodeKey(Key key, std::uint64_t* words) { words[0] = key; }
  static void encode(Agent::EvpnState const& row, std::uint64_t* words) {
    words[0] = 0;
    words[1] =
        static_cast<std::uint64_t>(row.capability) | (row.isWhole ? 0x100U : 0U) | (row.hasOwn ? 0x200U : 0U);
  }
  static std::optional<Key> decodeKey(std::uint64_t const* words) {
    if (words[0] != 0) return std::nullopt;
    return 0;
  }
  static bool decode(std::uint64_t const* words, Agent::EvpnState& row) {
    if (words[0] != 0 || (words[1] & ~std::uint64_t{0x303}) != 0) return false;
    row.capability = static_cast<Agent::EvpnState::Capability>(words[1] & 3);
    row.isWhole = (words[1] & 0x100) != 0;
    row.hasOwn = (words[1] & 0x200) != 0;
    return true;
  }
  static std::uint32_t hash(std::uint64_t const* words) {
    return Orb::hashMix(static_cast<std::uint32_t>(words[0]));
  }
  static std::uint32_t column(std::uint64_t const*) { return 0; }
};

namespace Agent {

/// The row and its table, for their writer.
class EvpnStateWriter {
 public:
  /// Raises MountError if another process writes the table. The row of an earlier run stays. If there is
  /// none, a default row is written at once, so that it exists before the other tables of the folder.
  EvpnStateWriter(std::string const& folder, bool repair);

  EvpnState state() const;
  void stateIs(EvpnState const& state);
  void endTurn() { table_.endTurn(); }

 private:
  Brine::Table<EvpnState> table_;
};

/// The row, for a reader that follows its changes.
class EvpnStateReader {
 public:
  /// Calls `told`, from the loop, when the row may have changed.
  EvpnStateReader(Loop& loop, std::string folder, Loop::Handler told);
  ~EvpnStateReader();
  EvpnStateReader(EvpnStateReader const&) = delete;
  EvpnStateReader& operator=(EvpnStateReader const&) = delete;

  /// The row; empty if there is none or it cannot be read.
  std::optional<EvpnState> state() const { return state_; }
  /// Reads changes now, without waiting for the loop.
  void deliver();

 private:
  void mount();
  void take();

  Loop& loop_;
  std::string folder_;
  Loop::Handler told_;
  Brine::Table<EvpnState> table_;
  Timer again_;
  std::optional<EvpnState> state_;
};

}  // namespace Agent
