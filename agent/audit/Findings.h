/// Agent::Findings: what is wrong with the rows of a table, found by comparing those that are there with
/// those that should be. The audit of a site, the demonstration's verdict and the tests all compare so.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "agent/tables/Tables.h"

namespace Agent {

enum class Fault : std::uint8_t {
  missing,   ///< It should be there, and is not.
  orphan,    ///< It is there, and nothing wants it.
  stale,     ///< It is there with other values than it should have.
  echoed,    ///< It is there, and goes back to whom it came from.
  duplicate  ///< It is there more than once.
};
/// "missing"
std::string_view toText(Fault fault);

struct Finding {
  std::string table;  ///< "exported/host"; of a switch, "leaf1 Ucast_Macs_Remote".
  Vxlan::Vni vni;
  std::string address;  ///< The rest of the row's key, a MAC or a VTEP; empty where there is none.
  Fault fault;
  std::string reason;  ///< For people.

  friend auto operator<=>(Finding const&, Finding const&) = default;
};
/// In the order in which rows are shown, table by table.
using Findings = std::vector<Finding>;

/// "exported/host  vni 5000  mac 02:00:00:00:00:01: orphan: the controller has no such entry"
void appendText(std::string& out, Finding const& finding);
/// {"table": .., "vni": .., "mac" or "vtep": .., "fault": .., "reason": ..}
nlohmann::ordered_json toJson(Finding const& finding);

/// Those of `findings` that are among `others` too.
Findings common(Findings const& findings, Findings const& others);

/// What is known of a row that is there and should not be, or not so.
struct Blame {
  Fault fault;
  std::string reason;
};

/// Why rows are as they should be; for texts, and to tell what is echoed.
template <class Row>
struct Judge {
  /// Of a row that nothing wants: orphan or echoed.
  std::function<Blame(Row const&)> unwanted = [](Row const&) {
    return Blame{Fault::orphan, "nothing wants it"};
  };
  /// Of a row that should be there.
  std::function<std::string(Row const&)> wanted = [](Row const&) { return "it should be there"; };
  /// Whether a row with other values than it should have is the one that came from the other side.
  std::function<bool(Row const&)> isSupplied = [](Row const&) { return false; };
};

template <class Row>
Finding findingOf(std::string_view table, Row const& row, Fault fault, std::string reason) {
  using Kind = TableKind<Row>;
  std::string address;
  if constexpr (HasMac<Row>) {
    address = Orb::toText(Kind::mac(row));
  } else if constexpr (HasVtep<Row>) {
    address = Orb::toText(Kind::vtep(row));
  }
  return {std::string(table), Kind::vni(row), std::move(address), fault, std::move(reason)};
}

/// "vtep 10.99.0.11, not 10.99.0.12; seq 0, not 1"
template <class Row>
std::string differenceOf(Row const& found, Row const& expected) {
  std::string text;
  for (Field<Row> const& field : TableKind<Row>::fields()) {
    std::string const is = field.text(found), should = field.text(expected);
    if (is != should)
      Orb::appendTexts(text, text.empty() ? "" : "; ", field.member, " ", is, ", not ", should);
  }
  return text;
}

/// Adds what is wrong with `found`. Both are in the order in which rows are shown; rows that should be there
/// are there once.
template <class Row>
void compareRows(Findings& findings, std::string_view table, std::vector<Row> const& expected,
                 std::vector<Row> const& found, Judge<Row> const& judge = {}) {
  auto const add = [&](Row const& row, Fault fault, std::string reason) {
    findings.push_back(findingOf(table, row, fault, std::move(reason)));
  };
  auto want = expected.begin();
  for (auto have = found.begin(); have != found.end() || want != expected.end();) {
    if (have == found.end() || (want != expected.end() && shownBefore(*want, *have))) {
      add(*want, Fault::missing, judge.wanted(*want));
      ++want;
      continue;
    }
    auto const next =
        std::find_if(have, found.end(), [&](Row const& row) { return shownBefore(*have, row); });
    if (next - have > 1)
      add(*have, Fault::duplicate, "it is there " + std::to_string(next - have) + " times");
    if (want == expected.end() || shownBefore(*have, *want)) {
      Blame blame = judge.unwanted(*have);
      add(*have, blame.fault, std::move(blame.reason));
    } else {
      if (std::find(have, next, *want) == next) {
        bool const isEchoed = judge.isSupplied(*have);
        add(*have, isEchoed ? Fault::echoed : Fault::stale, differenceOf(*have, *want));
      }
      ++want;
    }
    have = next;
  }
}

/// The same of every kind of rows, each table by its file's name below `folder`.
void compareRows(Findings& findings, std::string_view folder, SiteRows const& expected,
                 SiteRows const& found);

}  // namespace Agent
