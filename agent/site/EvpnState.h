/// What the EVPN side of a site says of itself to the agent: at most one row, in the table `learned/state`. A
/// table of its own, so that the agent knows it before it reads a route, and the last word stays when the
/// EVPN side has gone.
///
/// The agent takes the capability from here where it has been said, whatever its own feeds say; where there
/// is no table, no row, or nothing was said, from its feeds. Someone else's EVPN side need not write this
/// table: what its other tables hold is then taken for whole.
///
/// The agent says in the same way, in `exported/state`, what its own tables hold; no capability.
#pragma once

#include <optional>

#include "Brine/Table.h"
#include "Orb/Hash.h"
#include "agent/base/Loop.h"
#include "agent/site/Site.h"

namespace Agent {

struct EvpnState {
  static constexpr std::string_view file = "state";

  /// Whether the speaker has a session over which it exchanges EVPN routes. Assumed: nobody can say, but
  /// other sites take part, so it is on as long as no feed of the agent's says otherwise.
  enum class Capability : std::uint16_t { unsaid, off, on, assumed };
  Capability capability = Capability::unsaid;
  /// All routes that the speaker knows are in the tables. Written after them: who reads the row and then
  /// delivers the tables has them.
  bool isWhole = false;
  /// Of the agent's: what its own sources know is in the tables, as far as EVPN's side was heard of then.
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

/// The row and its table, as whoever writes it has them.
class EvpnStateWriter {
 public:
  /// Raises MountError where another process writes it. The row of an earlier run stays; where there is none,
  /// one that says nothing is there at once, so that tables made later have it beside them.
  EvpnStateWriter(std::string const& folder, bool repair);

  EvpnState state() const;
  void stateIs(EvpnState const& state);
  void endTurn() { table_.endTurn(); }

 private:
  Brine::Table<EvpnState> table_;
};

/// Follows the row.
class EvpnStateReader {
 public:
  /// `told` is called, from the loop, when it may be another one.
  EvpnStateReader(Loop& loop, std::string folder, Loop::Handler told);
  ~EvpnStateReader();
  EvpnStateReader(EvpnStateReader const&) = delete;
  EvpnStateReader& operator=(EvpnStateReader const&) = delete;

  /// Nothing where there is no row to be read.
  std::optional<EvpnState> state() const { return state_; }
  /// Takes what was changed, without waiting for the loop.
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
