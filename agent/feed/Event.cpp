#include "agent/feed/Event.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "Orb/Text.h"

namespace Agent {

namespace {

using Json = nlohmann::json;

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
  keyValue = 1024
};
constexpr std::array<std::pair<std::string_view, unsigned>, 11> keys{{{"t", keyT},
                                                                      {"from", keyFrom},
                                                                      {"op", keyOp},
                                                                      {"vni", keyVni},
                                                                      {"mac", keyMac},
                                                                      {"vtep", keyVtep},
                                                                      {"vteps", keyVteps},
                                                                      {"seq", keySeq},
                                                                      {"preference", keyPreference},
                                                                      {"on", keyOn},
                                                                      {"value", keyValue}}};

/// What an op takes, by where it comes from; an op that takes no key at all is none of that side's.
struct OpRule {
  std::string_view name;
  Op op;
  unsigned required;
  unsigned fromController;
  unsigned fromEvpn;
};
constexpr unsigned macKeys = keyVni | keyMac | keyVtep | keySeq | keyPreference;
constexpr std::array<OpRule, 10> opRules{{
    {"vni", Op::vni, keyVni, keyVni, 0},
    {"vni-del", Op::vniDel, keyVni, keyVni, 0},
    {"mac", Op::mac, keyVni | keyMac | keyVtep, macKeys, macKeys},
    {"mac-del", Op::macDel, keyVni | keyMac, macKeys, macKeys},
    {"flood", Op::flood, keyVni | keyVtep, keyVni | keyVtep | keyMac | keyOn, keyVni | keyVtep | keyOn},
    {"flood-del", Op::floodDel, keyVni | keyVtep, keyVni | keyVtep | keyMac | keyOn,
     keyVni | keyVtep | keyOn},
    {"multipath", Op::multipath, keyVni | keyMac | keyVteps, keyVni | keyMac | keyVteps, 0},
    {"multipath-del", Op::multipathDel, keyVni | keyMac, keyVni | keyMac | keyVteps, 0},
    {"enabled", Op::enabled, keyValue, keyValue, 0},
    {"capability", Op::capability, keyValue, 0, keyValue},
}};

/// A value or a key as JSON, cut short.
std::string shown(Json const& value) {
  std::string text = value.dump();
  if (text.size() > 60) text.replace(57, std::string::npos, "...");
  return text;
}

[[noreturn]] void fail(std::string_view key, Json const& value, std::string_view wanted) {
  throw EventError(std::string(key) + ": " + shown(value) + " is not " + std::string(wanted));
}

std::uint64_t number(Json const& object, char const* key, std::uint64_t max, std::uint64_t otherwise = 0) {
  auto const found = object.find(key);
  if (found == object.end()) return otherwise;
  if (!found->is_number_unsigned() || found->get<std::uint64_t>() > max) {
    fail(key, *found, "a number from 0 to " + std::to_string(max));
  }
  return found->get<std::uint64_t>();
}

bool boolean(Json const& object, char const* key, bool otherwise) {
  auto const found = object.find(key);
  if (found == object.end()) return otherwise;
  if (!found->is_boolean()) fail(key, *found, "true or false");
  return found->get<bool>();
}

/// Takes capitals as well, which other systems write in MAC addresses.
template <class Address>
Address address(Json const& value, char const* key, char const* wanted) {
  if (value.is_string()) {
    auto text = value.get<std::string>();
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    try {
      return Orb::parseWhole<Address>(text);
    } catch (Orb::Error const&) {
    }
  }
  fail(key, value, wanted);
}

Wirix::EthAddr macOf(Json const& object) {
  auto const found = object.find("mac");
  if (found == object.end()) return {};
  return address<Wirix::EthAddr>(*found, "mac", "a MAC address such as \"02:00:00:00:00:01\"");
}

Wirix::IpAddr vtepOf(Json const& value, char const* key) {
  return address<Wirix::IpAddr>(value, key, "an IPv4 address such as \"10.99.0.11\"");
}

std::vector<Wirix::IpAddr> vtepsOf(Json const& value) {
  if (!value.is_array()) fail("vteps", value, "a list of IPv4 addresses");
  std::vector<Wirix::IpAddr> result;
  for (Json const& each : value) result.push_back(vtepOf(each, "vteps"));
  return result;
}

Json parseObject(std::string_view line) {
  std::set<std::string> seen;
  std::string twice;
  auto const noteKeys = [&](int depth, Json::parse_event_t event, Json& parsed) {
    if (event == Json::parse_event_t::key && depth == 1 && !seen.insert(parsed.get<std::string>()).second) {
      twice = parsed.get<std::string>();
    }
    return true;
  };
  Json object;
  try {
    object = Json::parse(line, noteKeys);
  } catch (Json::parse_error const& error) {
    throw EventError("not JSON, at column " + std::to_string(error.byte));
  } catch (Json::exception const&) {
    throw EventError("not JSON: a number is out of range");
  }
  if (!object.is_object()) throw EventError("not a JSON object");
  if (!twice.empty()) throw EventError("key " + shown(twice) + " occurs twice");
  return object;
}

/// Which keys the object has. An unknown one is an error.
unsigned keysOf(Json const& object) {
  unsigned result = 0;
  for (auto const& member : object.items()) {
    auto const found =
        std::find_if(keys.begin(), keys.end(), [&](auto const& key) { return key.first == member.key(); });
    if (found == keys.end()) throw EventError("unknown key " + shown(member.key()));
    result |= found->second;
  }
  return result;
}

/// The name of the first key in a set that is not empty.
std::string keyName(unsigned set) {
  for (auto const& [name, bit] : keys) {
    if ((set & bit) != 0) return "'" + std::string(name) + "'";
  }
  return {};
}

Origin originOf(Json const& object) {
  auto const found = object.find("from");
  if (found == object.end()) throw EventError("key 'from' is missing");
  if (*found == "controller") return Origin::controller;
  if (*found == "evpn") return Origin::evpn;
  fail("from", *found, "\"controller\" or \"evpn\"");
}

OpRule const& ruleOf(Json const& object) {
  auto const found = object.find("op");
  if (found == object.end()) throw EventError("key 'op' is missing");
  for (OpRule const& rule : opRules) {
    if (*found == rule.name) return rule;
  }
  fail("op", *found, "a known operation");
}

/// Raises EventError unless the op comes from there and the keys that are present are those that it takes.
void requireKeys(OpRule const& rule, Origin from, unsigned present) {
  bool const isControllers = from == Origin::controller;
  unsigned const allowed = isControllers ? rule.fromController : rule.fromEvpn;
  std::string const op =
      "op '" + std::string(rule.name) + "' from " + (isControllers ? "controller" : "evpn");
  if (allowed == 0) throw EventError(op + " does not exist");
  if (unsigned const missing = rule.required & ~present)
    throw EventError(op + " needs key " + keyName(missing));
  if (unsigned const extra = present & ~(allowed | keyT | keyFrom | keyOp)) {
    throw EventError(op + " has no key " + keyName(extra));
  }
}

std::optional<double> timeOf(Json const& object) {
  auto const found = object.find("t");
  if (found == object.end()) return std::nullopt;
  if (!found->is_number() || !std::isfinite(found->get<double>()) || found->get<double>() < 0) {
    fail("t", *found, "a number of seconds, 0 or more");
  }
  return found->get<double>();
}

}  // namespace

Event parseEvent(std::string_view line) {
  Json const object = parseObject(line);
  unsigned const present = keysOf(object);
  Event event;
  event.from = originOf(object);
  OpRule const& rule = ruleOf(object);
  event.op = rule.op;
  requireKeys(rule, event.from, present);

  event.time = timeOf(object);
  event.vni = Vxlan::Vni(static_cast<std::uint32_t>(number(object, "vni", Vxlan::Vni::max)));
  event.mac = macOf(object);
  if (object.contains("vtep")) event.vtep = vtepOf(object["vtep"], "vtep");
  if (object.contains("vteps")) event.vteps = vtepsOf(object["vteps"]);
  event.seq = Seqno32(static_cast<std::uint32_t>(number(object, "seq", Seqno32::max)));
  event.preference = static_cast<std::uint8_t>(number(object, "preference", 255, event.preference));
  event.on = boolean(object, "on", true);
  event.value = boolean(object, "value", false);
  if (event.from == Origin::evpn && !event.on) throw EventError("on: a flood row from evpn cannot be off");
  return event;
}

}  // namespace Agent
