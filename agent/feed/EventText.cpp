#include <charconv>
#include <cstring>
#include <nlohmann/json.hpp>

#include "agent/feed/EventRules.h"

namespace Agent {

namespace {

/// Writes the parts of a line that have bounds one behind the other: what is recorded is a line an event.
class LineWriter {
 public:
  void text(std::string_view piece) {
    std::memcpy(at_, piece.data(), piece.size());
    at_ += piece.size();
  }
  void number(std::uint64_t value) { at_ = std::to_chars(at_, std::end(buffer_), value).ptr; }
  void mac(Wirix::EthAddr mac) {
    for (int shift = 44; shift >= 0; shift -= 4) {
      *at_++ = "0123456789abcdef"[mac.value() >> shift & 15];
      if (shift % 8 == 0 && shift != 0) *at_++ = ':';
    }
  }
  void address(Wirix::IpAddr address) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      number(address.value() >> shift & 255);
      if (shift != 0) *at_++ = '.';
    }
  }
  void boolean(bool value) { text(value ? "true" : "false"); }
  std::string_view written() const { return {buffer_, static_cast<std::size_t>(at_ - buffer_)}; }

 private:
  char buffer_[384];
  char* at_ = buffer_;
};

}  // namespace

void appendLine(std::string& out, std::string_view time, SourceId source, Event const& event) {
  static Event const plain;
  OpRule const& rule = ruleOf(event.op);
  bool const isControllers = event.from == Origin::controller;
  unsigned const allowed = isControllers ? rule.fromController : rule.fromEvpn;
  auto const has = [&](Key key, bool isDefault) {
    return (allowed & key) != 0 && (!isDefault || (rule.required & key) != 0);
  };
  LineWriter line;
  line.text("{");
  if (!time.empty()) {
    line.text("\"t\":");
    line.text(time);
    line.text(",");
  }
  line.text(isControllers ? R"("from":"controller","op":")" : R"("from":"evpn","op":")");
  line.text(rule.name);
  line.text("\"");
  if (has(keyVni, true)) {
    line.text(",\"vni\":");
    line.number(event.vni.value());
  }
  if (has(keyMac, event.mac == plain.mac)) {
    line.text(",\"mac\":\"");
    line.mac(event.mac);
    line.text("\"");
  }
  if (has(keyVtep, event.vtep == plain.vtep)) {
    line.text(",\"vtep\":\"");
    line.address(event.vtep);
    line.text("\"");
  }
  if (has(keySeq, event.seq == plain.seq)) {
    line.text(",\"seq\":");
    line.number(event.seq.value());
  }
  if (has(keyPreference, event.preference == plain.preference)) {
    line.text(",\"preference\":");
    line.number(event.preference);
  }
  if (has(keyOn, event.on)) line.text(",\"on\":false");
  if (has(keyValue, false)) {
    line.text(",\"value\":");
    line.boolean(event.value);
  }
  if (has(keySince, event.since == 0)) {
    line.text(",\"since\":");
    line.number(event.since);
  }
  if (source != earlierRun) {
    line.text(",\"source\":");
    line.number(source);
  }
  out += line.written();
  if (has(keyVteps, event.vteps.empty())) {
    std::string_view before = ",\"vteps\":[";
    for (Wirix::IpAddr const& vtep : event.vteps) {
      LineWriter each;
      each.text(before);
      each.text("\"");
      each.address(vtep);
      each.text("\"");
      out += each.written();
      before = ",";
    }
    out += event.vteps.empty() ? ",\"vteps\":[]" : "]";
  }
  if (has(keyName, true)) {
    auto const name =
        nlohmann::json(event.name).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    out.append(",\"name\":").append(name);
  }
  out += "}\n";
}

}  // namespace Agent
