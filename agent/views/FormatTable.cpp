#include "agent/views/FormatTable.h"

#include "agent/commands/Commands.h"

namespace Agent {

namespace {

constexpr std::array<std::string_view, 3> words = {"hosts", "floods", "bridge-ids"};
constexpr std::array<std::string_view, 3> members = {"hosts", "floods", "bridgeIds"};
constexpr std::array<std::string_view, 3> names = {Site::hostTable, Site::floodTable, Site::brIdTable};

}  // namespace

std::string TablePlace::label() const {
  return std::string(learned ? "learned/" : "exported/").append(names[static_cast<std::size_t>(kind)]);
}

std::string_view TablePlace::word() const { return words[static_cast<std::size_t>(kind)]; }

std::string_view TablePlace::member() const { return members[static_cast<std::size_t>(kind)]; }

Brine::MountOptions TablePlace::options(Site const& site, Brine::Mode mode) const {
  Brine::MountOptions options;
  options.directory = learned ? site.learned() : site.exported();
  options.name = names[static_cast<std::size_t>(kind)];
  options.mode = mode;
  return options;
}

TablePlace placeOf(std::string_view word, bool learned, RowFilter const& filter) {
  std::size_t kind = 0;
  while (words.at(kind) != word) ++kind;
  TablePlace const place{static_cast<Kind>(kind), learned};
  if (learned && place.kind == Kind::brId) {
    throw UsageError("--learned: the EVPN side keeps no bridge identifiers");
  }
  if (filter.mac && place.kind != Kind::host) throw UsageError("--mac: only hosts have MAC addresses");
  if (filter.vtep && place.kind == Kind::brId) throw UsageError("--vtep: bridge identifiers have no VTEPs");
  return place;
}

std::string explain(Brine::TableBase const& table, TablePlace const& place) {
  using Brine::MountStatus;
  std::string const who = place.learned ? "the EVPN side" : "the agent";
  std::string const where = table.options().directory + "/" + table.options().name;
  std::string const& detail = table.mountDetail();
  switch (table.mountStatus()) {
    case MountStatus::mounted: return {};
    case MountStatus::unmounted: return where + " is not mounted";
    case MountStatus::writerGone:
      return who + " that writes " + where + " is not running; its rows stay as it left them";
    case MountStatus::noTable:
      return "there is no table " + where + ": " + who + " has not run there, or --dir is another";
    case MountStatus::notPermitted:
      return where + " may not be read: " + detail + "; its readers are its directory's group";
    case MountStatus::incompatible: return where + " is of another version of this program: " + detail;
    case MountStatus::corrupt: return where + " is damaged: " + detail;
    default: break;
  }
  return std::string(where)
      .append(": ")
      .append(Brine::toText(table.mountStatus()))
      .append(": ")
      .append(detail);
}

void requireReadable(Brine::TableBase const& table, TablePlace const& place) {
  if (!Brine::isReadable(table.mountStatus())) throw std::runtime_error(explain(table, place));
}

}  // namespace Agent
