#include "adapters/ovsdb/RemoteWriter.h"

#include <algorithm>
#include <utility>

#include "Orb/Text.h"

namespace Ovsdb {

namespace {

/// How many keys a transaction writes, and a step compares.
constexpr std::size_t writeLimit = 256;
constexpr std::size_t lookLimit = 256;

Json reference(Uuid const& id) { return {"uuid", id.text()}; }
Json whereRow(Uuid const& id) { return Json::array({Json::array({"_uuid", "==", reference(id)})}); }

/// Why the database refused a transaction; empty if it did not.
std::string refusalIn(Session::Reply const& reply) {
  if (!reply.error.is_null()) return reply.error.dump();
  for (Json const& each : reply.result) {
    if (!each.is_object() || !each.contains("error")) continue;
    std::string text = each["error"].get<std::string>();
    if (each.contains("details")) text += ": " + each["details"].get<std::string>();
    return text;
  }
  return {};
}

}  // namespace

/// Operations for the database, and the keys that they serve.
struct RemoteWriter::Transaction {
  explicit Transaction(Replica const& used) : replica(used) {}

  /// A locator of that VTEP: the existing one, or one that the transaction inserts.
  Json locator(Wirix::IpAddr vtep) {
    if (auto const known = replica.locatorOf(vtep)) return reference(*known);
    auto const [made, isNew] = locators.try_emplace(vtep, "locator" + std::to_string(locators.size()));
    if (isNew) {
      std::string address;
      appendText(address, vtep);
      operations.push_back({{"op", "insert"},
                            {"table", "Physical_Locator"},
                            {"uuid-name", made->second},
                            {"row", {{"encapsulation_type", "vxlan_over_ipv4"}, {"dst_ip", address}}}});
    }
    return {"named-uuid", made->second};
  }

  /// The column of a row that names the MAC's locators.
  Json target(MacTable table, VtepList const& vteps) {
    if (table == MacTable::ucastRemote) return {{"locator", locator(vteps.front())}};
    Json members = Json::array();
    for (Wirix::IpAddr const vtep : vteps) members.push_back(locator(vtep));
    std::string const name = "set" + std::to_string(sets++);
    operations.push_back({{"op", "insert"},
                          {"table", "Physical_Locator_Set"},
                          {"uuid-name", name},
                          {"row", {{"locators", {"set", std::move(members)}}}}});
    return {{"locator_set", {"named-uuid", name}}};
  }

  void insertRow(MacTable table, Uuid const& logicalSwitch, Wirix::EthAddr mac, VtepList const& vteps) {
    Json row = target(table, vteps);
    std::string text = "unknown-dst";
    if (mac != Wirix::EthAddr()) {
      text.clear();
      appendText(text, mac);
    }
    row["MAC"] = text;
    row["logical_switch"] = reference(logicalSwitch);
    operations.push_back({{"op", "insert"}, {"table", nameOf(table)}, {"row", std::move(row)}});
  }
  void updateRow(MacTable table, Uuid const& id, VtepList const& vteps) {
    Json row = target(table, vteps);
    operations.push_back(
        {{"op", "update"}, {"table", nameOf(table)}, {"where", whereRow(id)}, {"row", std::move(row)}});
  }
  void deleteRow(MacTable table, Uuid const& id) {
    operations.push_back({{"op", "delete"}, {"table", nameOf(table)}, {"where", whereRow(id)}});
  }

  Replica const& replica;
  Json operations = Json::array({"hardware_vtep"});
  std::map<Wirix::IpAddr, std::string> locators;
  std::size_t sets = 0;
  std::vector<Key> keys;
};

RemoteWriter::RemoteWriter(Agent::Loop& loop, Agent::RemoteRows& rows, Pauses const& pauses,
                           Handlers handlers)
    : rows_(rows),
      handlers_(std::move(handlers)),
      limit_(writeLimit),
      correctionPause_(pauses.first),
      pause_(pauses),
      trialPause_(pauses),
      correction_(loop,
                  [this] {
                    dirty_.merge(corrected_);
                    corrected_.clear();
                    handlers_.wake();
                  }),
      retry_(loop, [this] { handlers_.wake(); }),
      trial_(loop, [this] {
        trialDue_ = true;
        handlers_.wake();
      }) {
  rows_.handlersIs({[this](Vxlan::Vni vni) {
                      vnis_.insert(vni);
                      handlers_.wake();
                    },
                    [this](Vxlan::Vni vni, Wirix::EthAddr mac) {
                      note({vni, mac});
                    },
                    [this](Vxlan::Vni vni, Wirix::EthAddr mac) {
                      note({vni, mac});
                    },
                    [this] { handlers_.wake(); }});
}

void RemoteWriter::note(Key const& key) {
  // Changes before the replica is complete are compared when it is.
  if (!ready_) return;
  noted_.push_back(key);
  handlers_.wake();
}

void RemoteWriter::noteVni(Vxlan::Vni vni) {
  rows_.forEachMac(vni, [&](Wirix::EthAddr mac, Wirix::IpAddr) { noted_.push_back({vni, mac}); });
  rows_.forEachFlood(vni, [&](Wirix::EthAddr mac, Agent::RemoteRows::Vteps const&) {
    noted_.push_back({vni, mac});
  });
}

void RemoteWriter::remoteChanged(Key const& key) {
  if (!ready_) {
    dirty_.insert(key);
    return;
  }
  corrected_.insert(key);
  if (!correction_.isRunning()) correction_.start(correctionPause_);
}

void RemoteWriter::ready() {
  ready_ = true;
  handlers_.wake();
}

void RemoteWriter::sessionLost() {
  ready_ = false;
  noted_.clear();
  vnis_.clear();
  dirty_.clear();
  putOff_.clear();
  corrected_.clear();
  apart_.clear();
  underWay_.clear();
  limit_ = writeLimit;
  isTrial_ = trialDue_ = false;
  correction_.cancel();
  retry_.cancel();
  trial_.cancel();
}

bool RemoteWriter::step(Session& session, Replica const& replica, LocalEntries const& own) {
  if (!ready_ || !underWay_.empty()) return false;
  if (!vnis_.empty()) {
    Vxlan::Vni const vni = *vnis_.begin();
    vnis_.erase(vnis_.begin());
    if (replica.serves(vni)) noteVni(vni);
    return true;
  }
  if (!noted_.empty()) {
    std::size_t const rest = noted_.size() - std::min(noted_.size(), lookLimit);
    dirty_.insert(noted_.begin() + static_cast<std::ptrdiff_t>(rest), noted_.end());
    noted_.resize(rest);
    return true;
  }
  if (rows_.isSettled() && !(putOff_.empty() && wanted_.empty())) {
    for (std::size_t i = 0; i < lookLimit && !putOff_.empty(); ++i)
      dirty_.insert(putOff_.extract(putOff_.begin()));
    for (std::size_t i = 0; i < lookLimit && !wanted_.empty(); ++i) wanted_.erase(wanted_.begin());
    return true;
  }
  Transaction transaction(replica);
  isTrial_ = std::exchange(trialDue_, false) && !apart_.empty();
  if (isTrial_) {
    Key const key = *apart_.begin();
    apart_.erase(apart_.begin());
    compare(key, replica, own, transaction);
    if (transaction.keys.empty()) answered({});  // there is nothing left to refuse
  } else {
    if (retry_.isRunning() || dirty_.empty()) return false;
    for (std::size_t i = 0; i < lookLimit && !dirty_.empty() && transaction.keys.size() < limit_; ++i) {
      Key const key = *dirty_.begin();
      dirty_.erase(dirty_.begin());
      compare(key, replica, own, transaction);
    }
  }
  if (!transaction.keys.empty()) send(session, std::move(transaction));
  return underWay_.empty();
}

void RemoteWriter::compare(Key const& key, Replica const& replica, LocalEntries const& own,
                           Transaction& transaction) {
  // An entry that the switch itself told must not return to it, even if its own addresses are unknown.
  VtepList mac;
  if (auto const vtep = rows_.mac(key.vni, key.mac); vtep && !own.tells(key, *vtep)) mac.push_back(*vtep);
  VtepList flood = rows_.flood(key.vni, key.mac);
  std::erase_if(flood, [&](Wirix::IpAddr vtep) { return own.tells(key, vtep); });
  if (!rows_.isSettled() && !(mac.empty() && flood.empty())) wanted_.insert(key);
  std::size_t const before = transaction.operations.size();
  for (Uuid const& logicalSwitch : replica.switchesOf(key.vni)) {
    compareRows(key, MacTable::ucastRemote, logicalSwitch, mac, replica, transaction);
    compareRows(key, MacTable::mcastRemote, logicalSwitch, flood, replica, transaction);
  }
  if (transaction.operations.size() != before) transaction.keys.push_back(key);
}

void RemoteWriter::compareRows(Key const& key, MacTable table, Uuid const& logicalSwitch, VtepList wanted,
                               Replica const& replica, Transaction& transaction) {
  std::vector<Uuid> rows = replica.rowsOf(table, logicalSwitch, key.mac);
  bool const mayRemove = rows_.isSettled() || wanted_.contains(key);
  if (wanted.empty() && !rows.empty() && !mayRemove) {
    putOff_.insert(key);
    return;
  }
  if (table == MacTable::mcastRemote && !wanted.empty() && !rows_.isSettled()) {
    // Until the controller is settled a list only grows.
    for (Uuid const& row : rows) {
      VtepList both;
      VtepList const present = replica.vtepsOf(table, row);
      std::set_union(wanted.begin(), wanted.end(), present.begin(), present.end(), std::back_inserter(both));
      if (both != wanted) putOff_.insert(key);
      wanted = std::move(both);
    }
  }
  if (wanted.empty()) {
    for (Uuid const& row : rows) transaction.deleteRow(table, row);
    return;
  }
  if (rows.empty()) {
    transaction.insertRow(table, logicalSwitch, key.mac, wanted);
    return;
  }
  // One row stays, preferably one that is correct.
  auto kept = std::find_if(rows.begin(), rows.end(),
                           [&](Uuid const& row) { return replica.vtepsOf(table, row) == wanted; });
  if (kept == rows.end()) {
    kept = rows.begin();
    transaction.updateRow(table, *kept, wanted);
  }
  for (Uuid const& row : rows) {
    if (row != *kept) transaction.deleteRow(table, row);
  }
}

void RemoteWriter::send(Session& session, Transaction&& transaction) {
  ++transactions_;
  underWay_ = std::move(transaction.keys);
  session.request("transact", std::move(transaction.operations),
                  [this](Session::Reply&& reply) { answered(refusalIn(reply)); });
}

void RemoteWriter::answered(std::string const& refusal) {
  std::vector<Key> const keys = std::exchange(underWay_, {});
  GrowingPause& pause = isTrial_ ? trialPause_ : pause_;
  if (refusal.empty()) {
    pause.reset();
    limit_ = std::min(limit_ * 2, writeLimit);
    if (isTrial_) trialDue_ = !apart_.empty();
  } else {
    ++refusals_;
    auto const wait = pause.next();
    bool const isAlone = keys.size() == 1;
    (isAlone ? apart_ : dirty_).insert(keys.begin(), keys.end());
    if (isAlone && !trial_.isRunning()) trial_.start(isTrial_ ? wait : trialPause_.next());
    if (!isTrial_) {
      retry_.start(wait);
      limit_ = 1;
    }
    std::string text = "the database refused remote rows of ";
    if (isAlone) {
      Orb::appendTexts(text, "VNI ", keys.front().vni, ", MAC ", keys.front().mac);
    } else {
      text += std::to_string(keys.size()) + " MACs";
    }
    handlers_.report(text + ": " + refusal + againText(wait));
  }
  handlers_.wake();
}

}  // namespace Ovsdb
