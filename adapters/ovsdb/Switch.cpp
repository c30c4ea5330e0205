#include "adapters/ovsdb/Switch.h"

#include "Orb/Text.h"

#include <algorithm>
#include <utility>

namespace Ovsdb {

using Agent::SourceState;

namespace {

constexpr char const* database = "hardware_vtep";
/// How long the work of a turn may take.
constexpr std::chrono::microseconds slice{1000};
/// How many left-out rows are named after a connect; all are counted.
constexpr std::size_t namedLimit = 20;

std::string errorText(Json const& error) {
  if (!error.is_object()) return error.dump();
  std::string text = error.value("error", "error");
  if (error.contains("details")) text += ": " + error.value("details", "");
  return text;
}

}  // namespace

Switch::Switch(Agent::Loop& loop, Options options, Agent::SourceHandlers handlers, Agent::RemoteRows& rows)
    : options_(std::move(options)),
      handlers_(std::move(handlers)),
      rows_(rows),
      local_(newEntries()),
      replica_(newReplica()),
      work_(loop, [this] { work(); }),
      remote_(loop, rows, options_.pauses,
              {[this] {
                 if (!work_.isRunning()) work_.start({});
               },
               [this](std::string const& line) {
                 lastError_ = line;
                 report(line);
               }}),
      session_(
          loop, Endpoint(options_.endpoint), options_.tls, options_.pauses,
          {[this] { askSchema(); },
           [this](std::string const& method, Json const&, std::vector<Message::Table>&& tables) {
             if (method == "update") takeTables(std::move(tables));
           },
           [this](std::string const& cause, std::chrono::milliseconds pause) { failed(cause, pause); }}) {}

std::unique_ptr<Replica> Switch::newReplica() {
  return std::make_unique<Replica>(Replica::Handlers{[this](Vxlan::Vni vni) {
                                                       local_.vniChanged(vni);
                                                       remote_.vniServed(vni);
                                                     },
                                                     [this](Key const& key) { local_.changed(key); },
                                                     [this](Key const& key) { remote_.remoteChanged(key); },
                                                     [this] { ownVtepsChanged(); },
                                                     [this](std::string const& what) {
                                                       if (++refusalsNamed_ <= namedLimit) report(what);
                                                     }});
}

std::size_t Switch::remoteRows() const {
  return replica_->rows(MacTable::ucastRemote) + replica_->rows(MacTable::mcastRemote);
}

nlohmann::ordered_json Switch::rowsOf(Vxlan::Vni vni) const {
  using OrderedJson = nlohmann::ordered_json;
  auto const textOf = [](Wirix::EthAddr mac, VtepList const& vteps) {
    std::string text = Orb::toText(mac);
    for (Wirix::IpAddr const vtep : vteps) Orb::appendTexts(text, " ", vtep);
    return text;
  };
  OrderedJson own = OrderedJson::array(), told = OrderedJson::array(), tables = OrderedJson::array();
  for (Wirix::IpAddr const vtep : replica_->ownVteps()) own.push_back(Orb::toText(vtep));
  local_.forEachOf(vni,
                   [&](Wirix::EthAddr mac, VtepList const& vteps) { told.push_back(textOf(mac, vteps)); });
  for (Uuid const& logicalSwitch : replica_->switchesOf(vni)) {
    for (MacTable const table : {MacTable::ucastRemote, MacTable::mcastRemote}) {
      OrderedJson rows = OrderedJson::array();
      replica_->forEachMac(table, logicalSwitch, [&](Wirix::EthAddr mac, std::vector<Uuid> const& ids) {
        for (Uuid const& id : ids) rows.push_back(textOf(mac, replica_->vtepsOf(table, id)));
      });
      tables.push_back({{"name", nameOf(table)}, {"rows", std::move(rows)}});
    }
  }
  return {{"name", options_.name},
          {"own", std::move(own)},
          {"told", std::move(told)},
          {"tables", std::move(tables)}};
}

std::vector<VtepList> Switch::remoteRowsOf(Key const& key) const {
  std::vector<VtepList> result;
  for (Uuid const& logicalSwitch : replica_->switchesOf(key.vni)) {
    for (MacTable const table : {MacTable::ucastRemote, MacTable::mcastRemote}) {
      for (Uuid const& id : replica_->rowsOf(table, logicalSwitch, key.mac))
        result.push_back(replica_->vtepsOf(table, id));
    }
  }
  return result;
}

void Switch::report(std::string const& line) {
  handlers_.report(options_.name + ": " + options_.endpoint + ": " + line);
}

void Switch::stateIs(SourceState state, std::string const& cause) {
  if (state != state_) since_ = std::chrono::system_clock::now();
  state_ = state;
  handlers_.state(state, cause);
}

void Switch::askSchema() {
  session_.request("get_schema", {database}, [this](Session::Reply&& reply) { checkSchema(reply); });
}

void Switch::checkSchema(Session::Reply const& reply) {
  if (!reply.error.is_null()) {
    return session_.fail(std::string("no database ") + database + ": " + errorText(reply.error));
  }
  std::map<std::string, Json> columns;
  for (Message::Table const& part : reply.tables) {
    if (part.name != "tables") continue;
    for (std::string const& member : part.rows) {
      Json const table = Json::parse('{' + member + '}');
      columns[table.begin().key()] = table.begin().value().at("columns");
    }
  }
  if (std::string const missing = Replica::missing(columns); !missing.empty()) {
    return session_.fail(std::string("the schema of database ") + database + " lacks " + missing);
  }
  session_.request("monitor", {database, "switch", Replica::monitorRequests()},
                   [this](Session::Reply&& answer) {
                     if (!answer.error.is_null())
                       return session_.fail("cannot be monitored: " + errorText(answer.error));
                     stateIs(SourceState::syncing, {});
                     takeTables(std::move(answer.tables));
                   });
}

void Switch::ownVtepsChanged() {
  rows_.ownVtepsIs(replica_->ownVteps());
  replica_->forEachVni([this](Vxlan::Vni vni) { remote_.vniServed(vni); });
}

/// No further message comes until all its rows have been handled.
void Switch::takeTables(std::vector<Message::Table>&& tables) {
  // Logical switches come last: an entry that is removed together with its logical switch is announced with
  // the VNI that it had.
  std::stable_partition(tables.begin(), tables.end(),
                        [](Message::Table const& table) { return table.name != "Logical_Switch"; });
  for (Message::Table& table : tables) untaken_.push_back(std::move(table));
  taking_ = true;
  session_.heldIs(true);
  work();
}

void Switch::work() {
  auto const end = std::chrono::steady_clock::now() + slice;
  try {
    while (workStep()) {
      if (std::chrono::steady_clock::now() < end) continue;
      work_.start({});
      return;
    }
  } catch (std::exception const& error) {
    session_.fail(error.what());
  }
}

/// Does a part of the work; false if none is left.
bool Switch::workStep() {
  if (taking_) {
    if (!untaken_.empty()) {
      Message::Table& table = untaken_.front();
      if (table.rows.empty()) {
        untaken_.pop_front();
      } else {
        std::string const row = std::move(table.rows.front());
        table.rows.pop_front();
        replica_->take(table.name, row);
      }
    } else if (!replica_->relabel(64) && !local_.step(*replica_)) {
      finishMessage();
    }
    return true;
  }
  if (session_.isOpen() && remote_.step(session_, *replica_, local_)) return true;
  if (former_.empty()) return false;
  if (!former_.back().replica->shrink(64) && !former_.back().local.shrink(64)) former_.pop_back();
  return true;
}

void Switch::finishMessage() {
  taking_ = false;
  if (state_ == SourceState::syncing) {
    lastError_.clear();
    session_.healthy();
    rows_.ownVtepsIs(replica_->ownVteps());
    stateIs(SourceState::synced, {});
    remote_.ready();
  }
  session_.heldIs(false);
}

void Switch::failed(std::string const& cause, std::chrono::milliseconds pause) {
  lastError_ = cause;
  taking_ = false;
  untaken_.clear();
  remote_.sessionLost();
  refusalsNamed_ = 0;
  former_.push_back({std::exchange(replica_, newReplica()), std::exchange(local_, newEntries())});
  bool const wasThere = state_ != SourceState::connecting;
  stateIs(wasThere ? SourceState::lost : SourceState::connecting,
          options_.endpoint + ": " + cause + againText(pause));
  if (!work_.isRunning()) work_.start({});
}

}  // namespace Ovsdb
