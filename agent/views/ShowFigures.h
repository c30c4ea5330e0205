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
};

/// The agent's. Raise where none runs, or where its socket may not be used; the message says so.
std::vector<CounterFigure> countersOf(Site const& site);
nlohmann::ordered_json stateOf(Site const& site);
/// Without the rows that are not wanted; with a filter, also without VNIs of which nothing is left.
EvpnStatus evpnStatusOf(Site const& site, RowFilter const& filter);

/// Members of members as "outer.inner".
std::vector<StateFigure> figuresOf(nlohmann::ordered_json const& state);

/// Of all tables, by mounting each; never raises for a table.
std::vector<TableFigure> tablesOf(Site const& site);

/// The status as a JSON object, a VNI a line.
void writeEvpnStatus(Output& out, EvpnStatus const& status);

}  // namespace Agent
