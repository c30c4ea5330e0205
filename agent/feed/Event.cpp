#include "agent/feed/Event.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "Orb/Text.h"
#include "agent/base/MacNotation.h"
#include "agent/feed/EventRules.h"

namespace Agent {

namespace {

using Parsed = nlohmann::json;

/// A value or a key as JSON, cut short.
std::string shown(Parsed const& value) {
  std::string text = value.dump();
  if (text.size() > 60) text.replace(57, std::string::npos, "...");
  return text;
}

[[noreturn]] void fail(std::string_view key, Parsed const& value, std::string_view wanted) {
  throw EventError(std::string(key) + ": " + shown(value) + " is not " + std::string(wanted));
}

std::uint64_t number(Parsed const& object, char const* key, std::uint64_t max, std::uint64_t otherwise = 0) {
  auto const found = object.find(key);
  if (found == object.end()) return otherwise;
  if (!found->is_number_unsigned() || found->get<std::uint64_t>() > max) {
    fail(key, *found, "a number from 0 to " + std::to_string(max));
  }
  return found->get<std::uint64_t>();
}

bool boolean(Parsed const& object, char const* key, bool otherwise) {
  auto const found = object.find(key);
  if (found == object.end()) return otherwise;
  if (!found->is_boolean()) fail(key, *found, "true or false");
  return found->get<bool>();
}

Wirix::EthAddr macOf(Parsed const& object) {
  auto const found = object.find("mac");
  if (found == object.end()) return {};
  if (found->is_string()) {
    try {
      return macFromPeople(found->get<std::string>());
    } catch (Orb::Error const&) {
    }
  }
  fail("mac", *found, "a MAC address such as \"02:00:00:00:00:01\"");
}

Wirix::IpAddr vtepOf(Parsed const& value, char const* key) {
  if (value.is_string()) {
    try {
      return Orb::parseWhole<Wirix::IpAddr>(value.get<std::string>());
    } catch (Orb::Error const&) {
    }
  }
  fail(key, value, "an IPv4 address such as \"10.99.0.11\"");
}

std::string textOf(Parsed const& value, char const* key) {
  if (!value.is_string()) fail(key, value, "a text");
  return value.get<std::string>();
}

std::vector<Wirix::IpAddr> vtepsOf(Parsed const& value) {
  if (!value.is_array()) fail("vteps", value, "a list of IPv4 addresses");
  std::vector<Wirix::IpAddr> result;
  for (Parsed const& each : value) result.push_back(vtepOf(each, "vteps"));
  return result;
}

Parsed parseObject(std::string_view line) {
  std::set<std::string> seen;
  std::string twice;
  auto const noteKeys = [&](int depth, Parsed::parse_event_t event, Parsed& parsed) {
    if (event == Parsed::parse_event_t::key && depth == 1 && !seen.insert(parsed.get<std::string>()).second) {
      twice = parsed.get<std::string>();
    }
    return true;
  };
  Parsed object;
  try {
    object = Parsed::parse(line, noteKeys);
  } catch (Parsed::parse_error const& error) {
    throw EventError("not JSON, at column " + std::to_string(error.byte));
  } catch (Parsed::exception const&) {
    throw EventError("not JSON: a number is out of range");
  }
  if (!object.is_object()) throw EventError("not a JSON object");
  if (!twice.empty()) throw EventError("key " + shown(twice) + " occurs twice");
  return object;
}

/// Which keys the object has. An unknown one is an error.
unsigned keysOf(Parsed const& object) {
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
std::string nameOfKey(unsigned set) {
  for (auto const& [name, bit] : keys) {
    if ((set & bit) != 0) return "'" + std::string(name) + "'";
  }
  return {};
}

Origin originOf(Parsed const& object) {
  auto const found = object.find("from");
  if (found == object.end()) throw EventError("key 'from' is missing");
  if (*found == "controller") return Origin::controller;
  if (*found == "evpn") return Origin::evpn;
  fail("from", *found, "\"controller\" or \"evpn\"");
}

OpRule const& ruleOf(Parsed const& object) {
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
  if (allowed == notThere) throw EventError(op + " does not exist");
  if (unsigned const missing = rule.required & ~present)
    throw EventError(op + " needs key " + nameOfKey(missing));
  if (unsigned const extra = present & ~(allowed | commonKeys)) {
    throw EventError(op + " has no key " + nameOfKey(extra));
  }
}

std::optional<double> timeOf(Parsed const& object) {
  auto const found = object.find("t");
  if (found == object.end()) return std::nullopt;
  if (!found->is_number() || !std::isfinite(found->get<double>()) || found->get<double>() < 0) {
    fail("t", *found, "a number of seconds, 0 or more");
  }
  return found->get<double>();
}

/// Reads an event in the form in which programs write it, in one pass: an object whose texts are ASCII
/// without escapes and whose numbers are digits; `t` may have a fraction. All other lines, also wrong ones,
/// are left to `readAny()`, which takes about ten times as long and names the error and its place.
class PlainLine {
 public:
  explicit PlainLine(std::string_view line)
      : line_(line.data()), at_(line.data()), end_(line.data() + line.size()) {}

  std::optional<Event> read() {
    bool const isRead = take('{') && readMember();
    if (!isRead) return std::nullopt;
    // A recording leaves out the time alone, and only if it is the first member.
    char const* members = line_ + 1;
    bool const isTimeInFront = present_ == keyT;
    while (take(',')) {
      if (present_ == keyT) members = at_;
      if (!readMember()) return std::nullopt;
    }
    char const* const membersEnd = at_;
    if (!take('}')) return std::nullopt;
    bool const isAFeeds = (present_ & (keySource | keySince | Key::keyName)) == 0 && *line_ == '{';
    if (isAFeeds && (isTimeInFront || (present_ & keyT) == 0))
      event_.written.members = {members, static_cast<std::size_t>(membersEnd - members)};
    skipBlanks();
    return at_ == end_ && isComplete() ? std::optional(std::move(event_)) : std::nullopt;
  }

 private:
  bool isComplete() const {
    if (rule_ == nullptr || (present_ & keyFrom) == 0) return false;
    bool const isControllers = event_.from == Origin::controller;
    unsigned const allowed = isControllers ? rule_->fromController : rule_->fromEvpn;
    return allowed != notThere && (rule_->required & ~present_) == 0 &&
           (present_ & ~(allowed | commonKeys)) == 0 && (isControllers || event_.on);
  }

  bool readMember() {
    std::string_view name;
    if (!readText(name) || !take(':')) return false;
    auto const key =
        std::find_if(keys.begin(), keys.end(), [&](auto const& each) { return each.first == name; });
    if (key == keys.end() || (present_ & key->second) != 0) return false;
    present_ |= key->second;
    skipBlanks();
    return readValue(key->second);
  }

  bool readValue(unsigned key) {
    std::uint64_t number = 0;
    switch (key) {
      case keyT: return readTime();
      case keyFrom: return readFrom();
      case keyOp: return readOp();
      case keyVni:
        if (!readNumber(number, Vxlan::Vni::max)) return false;
        event_.vni = Vxlan::Vni(static_cast<std::uint32_t>(number));
        return true;
      case keySeq:
        if (!readNumber(number, Seqno32::max)) return false;
        event_.seq = Seqno32(static_cast<std::uint32_t>(number));
        return true;
      case keyPreference:
        if (!readNumber(number, 255)) return false;
        event_.preference = static_cast<std::uint8_t>(number);
        return true;
      case keyMac: return readMac();
      case keyVtep: return readVtep(event_.vtep);
      case keyVteps: return readVteps();
      case keyOn: return readBool(event_.on);
      case keyValue: return readBool(event_.value);
      case keySource:
        if (!readNumber(number, sourceMax)) return false;
        event_.source = number;
        return true;
      case keySince:
        if (!readNumber(number, sinceMax)) return false;
        event_.since = static_cast<std::uint32_t>(number);
        return true;
      default: return false;
    }
  }

  bool readFrom() {
    std::string_view from;
    if (!readText(from)) return false;
    event_.from = from == "evpn" ? Origin::evpn : Origin::controller;
    return from == "evpn" || from == "controller";
  }
  bool readOp() {
    std::string_view name;
    if (!readText(name)) return false;
    rule_ = std::find_if(opRules.begin(), opRules.end(), [&](auto const& each) { return each.name == name; });
    if (rule_ == opRules.end()) return false;
    event_.op = rule_->op;
    return true;
  }
  bool readTime() {
    char const* const begin = at_;
    if (!skipDigits()) return false;
    if (at_ != end_ && *at_ == '.') {
      ++at_;
      char const* const fraction = at_;
      while (at_ != end_ && isDigit(*at_)) ++at_;
      if (at_ == fraction) return false;
    }
    double time = 0;
    if (std::from_chars(begin, at_, time).ec != std::errc()) return false;
    event_.time = time;
    return true;
  }
  bool readNumber(std::uint64_t& number, std::uint64_t max) {
    char const* const begin = at_;
    if (!skipDigits() || at_ - begin > 10) return false;
    for (char const* digit = begin; digit != at_; ++digit)
      number = number * 10 + static_cast<std::uint64_t>(*digit - '0');
    return number <= max;
  }
  bool readBool(bool& value) {
    std::string_view const rest(at_, static_cast<std::size_t>(end_ - at_));
    value = rest.starts_with("true");
    if (!value && !rest.starts_with("false")) return false;
    at_ += value ? 4 : 5;
    return true;
  }
  bool readMac() {
    std::string_view text;
    if (!readText(text) || text.size() != 17) return false;
    std::uint64_t mac = 0;
    for (std::size_t i = 0; i < 17; i += 3) {
      unsigned const high = hexDigit(text[i]);
      unsigned const low = hexDigit(text[i + 1]);
      if ((high | low) > 15 || (i != 0 && text[i - 1] != ':')) return false;
      mac = mac << 8 | high << 4 | low;
    }
    event_.mac = Wirix::EthAddr::ofValue(mac);
    return true;
  }
  bool readVtep(Wirix::IpAddr& vtep) {
    if (!take('"')) return false;
    std::uint32_t address = 0;
    for (int octet = 0; octet < 4; ++octet) {
      if (octet != 0 && (at_ == end_ || *at_++ != '.')) return false;
      std::uint64_t number = 0;
      if (!readNumber(number, 255)) return false;
      address = address << 8 | static_cast<std::uint32_t>(number);
    }
    vtep = Wirix::IpAddr(address);
    return at_ != end_ && *at_++ == '"';
  }
  bool readVteps() {
    if (!take('[')) return false;
    if (take(']')) return true;
    do {
      Wirix::IpAddr vtep;
      if (!readVtep(vtep)) return false;
      event_.vteps.push_back(vtep);
    } while (take(','));
    return take(']');
  }

  /// A text of ASCII bytes without escapes and control characters.
  bool readText(std::string_view& text) {
    if (!take('"')) return false;
    char const* const begin = at_;
    while (at_ != end_ && *at_ != '"' && *at_ != '\\' && *at_ >= ' ') ++at_;
    text = std::string_view(begin, static_cast<std::size_t>(at_ - begin));
    return at_ != end_ && *at_++ == '"';
  }
  /// Digits; a leading 0 is allowed only as the single digit.
  bool skipDigits() {
    char const* const begin = at_;
    while (at_ != end_ && isDigit(*at_)) ++at_;
    return at_ != begin && (*begin != '0' || at_ - begin == 1);
  }
  bool take(char wanted) {
    skipBlanks();
    bool const isThere = at_ != end_ && *at_ == wanted;
    at_ += isThere;
    return isThere;
  }
  void skipBlanks() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\t')) ++at_;
  }
  static bool isDigit(char c) { return c >= '0' && c <= '9'; }
  /// The value of a hexadecimal digit; more than 15 for any other character.
  static unsigned hexDigit(char c) {
    if (isDigit(c)) return static_cast<unsigned>(c - '0');
    auto const letter = static_cast<unsigned>(c | 0x20) - 'a';
    return letter < 6 ? letter + 10 : 16;
  }

  char const* line_;
  char const* at_;
  char const* end_;
  unsigned present_ = 0;
  OpRule const* rule_ = nullptr;
  Event event_;
};

Event readAny(std::string_view line) {
  Parsed const object = parseObject(line);
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
  if (object.contains("source")) event.source = number(object, "source", sourceMax);
  event.since = static_cast<std::uint32_t>(number(object, "since", sinceMax));
  if (object.contains("name")) event.name = textOf(object["name"], "name");
  if (event.from == Origin::evpn && !event.on) throw EventError("on: a flood row from evpn cannot be off");
  return event;
}

}  // namespace

std::string_view toText(Op op) { return ruleOf(op).name; }

Event parseEvent(std::string_view line) {
  std::optional<Event> plain = PlainLine(line).read();
  return plain ? std::move(*plain) : readAny(line);
}

}  // namespace Agent
