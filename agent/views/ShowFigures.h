/// What `qorevpn show` shows besides rows of tables: counters, the state of each table, the status from EVPN.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "agent/site/Site.h"
#include "agent/views/EvpnStatus.h"
#include "agent/views/Format.h"

namespace Agent {

/// An operation counter of the running agent.
struct CounterFigure {
  std::string owner;
  std::string name;
  std::uint64_t value = 0;

  static std::span<Field<CounterFigure> const> fields();
};

/// One thing that the running agent says of itself.
struct StateFigure {
  std::string name;
  std::string value;

  static std::span<Field<StateFigure> const> fields();
};

/// A source of events: a feed, a switch, a speaker.
struct SourceFigure {
  std::string name;
  std::string process;  ///< Who listens to it: "agent", "evpn".
  std::string kind;
  std::string endpoint;
  std::string state;
  std::uint64_t since = 0;  ///< Seconds of Unix time.
  std::uint64_t entries = 0;
  std::string lastError;                         ///< Also where it is over.
  std::map<std::string, std::uint64_t> refused;  ///< How many entries, by reason.
  bool givenUp = false;
  std::map<std::string, std::uint64_t> leftOut;  ///< What no entry can hold, by reason.

  /// What does not fit into a column, a line each.
  std::vector<std::string> notes() const;
  static std::span<Field<SourceFigure> const> fields();
};

/// A MAC address that the controller knows: who has the entry that counts, and why.
struct FdbFigure {
  Vxlan::Vni vni;
  Wirix::EthAddr mac;
  Wirix::IpAddr vtep;
  std::uint32_t seq = 0;
  std::string from;  ///< The name of a source, or "evpn".
  std::string why;

  static std::span<Field<FdbFigure> const> fields();
};

/// How many rows of a VNI each table has.
struct VniFigure {
  Vxlan::Vni vni;
  std::vector<std::uint64_t> counts;  ///< By table, as `vniTables()` lists them.

  static std::span<Field<VniFigure> const> fields();
};

/// The state of one table. Where it cannot be read the numbers are 0 and `note` says why.
struct TableFigure {
  std::string table;
  std::string status;
  std::uint64_t rows = 0;
  std::uint64_t capacity = 0;
  std::string
      generation;  ///< Hexadecimal: all 64 bits count, and JSON readers may keep only 53 of a number's.
  std::uint64_t changeSequence = 0;
  bool writerAlive = false;
  bool quiesced = false;
  std::string note;

  static std::span<Field<TableFigure> const> fields();
  /// Those that people read, who read the notes below.
  static std::span<Field<TableFigure> const> columns();
};

/// The agent's. Raise where none runs, or where its socket may not be used; the message says so.
std::vector<CounterFigure> countersOf(Site const& site);
nlohmann::ordered_json stateOf(Site const& site);
/// Of what the agent and the EVPN side say, the sources that `subject` names: "sources", "switches" or
/// "speaker". Raises where neither runs.
nlohmann::ordered_json sourcesOf(Site const& site, std::string_view subject);
std::vector<SourceFigure> sourceFiguresOf(nlohmann::ordered_json const& sources);
/// The entries that are wanted, in the order in which rows are shown.
std::vector<FdbFigure> fdbOf(Site const& site, RowFilter const& filter);
/// Without the rows that are not wanted; with a filter, also without VNIs of which nothing is left.
EvpnStatus evpnStatusOf(Site const& site, RowFilter const& filter);

/// Members of members as "outer.inner".
std::vector<StateFigure> figuresOf(nlohmann::ordered_json const& state);

/// The rows that are wanted of each table that can be read, counted by VNI.
std::vector<VniFigure> summaryOf(Site const& site, RowFilter const& filter);

/// Of all tables, by mounting each; never raises for a table.
std::vector<TableFigure> tablesOf(Site const& site);

/// The status as a JSON object, a VNI a line.
void writeEvpnStatus(Output& out, EvpnStatus const& status);

}  // namespace Agent
