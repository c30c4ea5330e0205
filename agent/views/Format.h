#pragma once

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Orb/Text.h"

/// How the commands that show something write it: aligned columns for people, the values' own text, JSON.
namespace Agent {

enum class Form {
  people,  ///< Aligned columns with a heading, a summary below.
  text,    ///< One value a line, in the text form that its parser reads back.
  json,    ///< For programs.
};

/// The output is not wanted any more: its reader has gone, or the program was told to stop.
class OutputClosed : public std::runtime_error {
 public:
  OutputClosed() : std::runtime_error("the output is not wanted any more") {}
};

/// A descriptor that is written in large pieces. What is pending is lost unless `flush()` is called.
class Output {
 public:
  /// `fd` stays the caller's. Colours are used on a terminal, unless the environment sets NO_COLOR or a dumb
  /// TERM.
  explicit Output(int fd);

  int fd() const { return fd_; }
  bool hasColours() const { return hasColours_; }
  /// Once `fd` is readable, `flush()` raises `OutputClosed` rather than wait for a slow reader. -1 for none.
  void stopFdIs(int fd) { stopFd_ = fd; }

  /// Both raise `OutputClosed`, or `std::system_error` where the output cannot be written.
  template <Orb::Writable... Pieces>
  void write(Pieces const&... pieces) {
    Orb::appendTexts(pending_, pieces...);
    if (pending_.size() >= flushBytes) flush();
  }
  void flush();

 private:
  static constexpr std::size_t flushBytes = 1 << 16;

  int fd_;
  int stopFd_ = -1;
  bool hasColours_;
  std::string pending_;
};

/// Escape sequences of a terminal, empty where colours are off.
struct Colours {
  explicit Colours(bool on);
  std::string_view heading, added, changed, removed, faint, reset;
};

/// What is shown of a row: a column for people, a member of its JSON object for programs.
template <class Row>
struct Field {
  std::string_view heading;
  std::string_view member;
  bool isNumber;  ///< Aligned to the right, a number in JSON.
  void (*append)(std::string& out, Row const& row);
  nlohmann::json (*json)(Row const& row);

  std::string text(Row const& row) const {
    std::string out;
    append(out, row);
    return out;
  }
};

/// One row as a JSON object.
template <class Row>
nlohmann::json toJson(std::span<Field<Row> const> fields, Row const& row) {
  nlohmann::json object = nlohmann::json::object();
  for (Field<Row> const& field : fields) object[field.member] = field.json(row);
  return object;
}

/// A heading and a line a row, each column as wide as its widest cell.
template <class Row>
void writeColumns(Output& out, std::span<Field<Row> const> fields, std::span<Row const> rows) {
  std::vector<std::size_t> widths;
  std::string cell;
  for (Field<Row> const& field : fields) {
    std::size_t width = field.heading.size();
    for (Row const& row : rows) {
      cell.clear();
      field.append(cell, row);
      width = std::max(width, cell.size());
    }
    widths.push_back(width);
  }

  std::string line;
  auto const writeLine = [&](auto const& cellOf, std::string_view before, std::string_view after) {
    line.clear();
    for (std::size_t i = 0; i < fields.size(); ++i) {
      cell.clear();
      cellOf(fields[i]);
      std::size_t const gap = widths[i] - cell.size();
      if (i != 0) line += "  ";
      if (fields[i].isNumber) line.append(gap, ' ');
      line += cell;
      if (!fields[i].isNumber) line.append(gap, ' ');
    }
    line.resize(line.find_last_not_of(' ') + 1);
    out.write(before, line, after, "\n");
  };
  Colours const colours(out.hasColours());
  writeLine([&](Field<Row> const& field) { cell = field.heading; }, colours.heading, colours.reset);
  for (Row const& row : rows) writeLine([&](Field<Row> const& field) { field.append(cell, row); }, "", "");
}

/// A JSON array, an element a line.
template <class Row, class ToJson>
void writeArray(Output& out, std::span<Row const> rows, ToJson toJson) {
  std::string_view separator = "\n";
  out.write("[");
  for (Row const& row : rows) {
    out.write(separator, toJson(row).dump());
    separator = ",\n";
  }
  out.write("]");
}

/// "1 row", "2 rows", "12,345 rows".
std::string countText(std::size_t count, std::string_view noun);

}  // namespace Agent
