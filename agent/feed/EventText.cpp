#include <charconv>
#include <cstring>
#include <nlohmann/json.hpp>

#include "agent/feed/EventRules.h"

namespace Agent {

namespace {

/// "0" to "255", and "00" to "ff".
struct Octets {
  char decimal[256][4];  ///< The last element is the length.
  char hex[256][2];
};
constexpr Octets octets = [] {
  Octets result{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned length = 0;
    for (unsigned unit = i < 10 ? 1 : i < 100 ? 10 : 100; unit != 0; unit /= 10)
      result.decimal[i][length++] = static_cast<char>('0' + i / unit % 10);
    result.decimal[i][3] = static_cast<char>(length);
    result.hex[i][0] = "0123456789abcdef"[i / 16];
    result.hex[i][1] = "0123456789abcdef"[i % 16];
  }
  return result;
}();

/// Writes the parts of a line that have a fixed maximum length.
class LineWriter {
 public:
  template <std::size_t size>
  void text(char const (&piece)[size]) {
    std::memcpy(at_, piece, size - 1);
    at_ += size - 1;
  }
  void text(std::string_view piece) {
    std::memcpy(at_, piece.data(), piece.size());
    at_ += piece.size();
  }
  void number(std::uint64_t value) { at_ = std::to_chars(at_, std::end(buffer_), value).ptr; }
  void mac(Wirix::EthAddr mac) {
    std::uint64_t const value = mac.value();
    for (int shift = 40; shift >= 0; shift -= 8) {
      std::memcpy(at_, octets.hex[value >> shift & 255], 2);
      at_[2] = ':';
      at_ += 3;
    }
    --at_;
  }
  void address(Wirix::IpAddr address) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      char const* const octet = octets.decimal[address.value() >> shift & 255];
      std::memcpy(at_, octet, 3);
      at_ += octet[3];
      *at_++ = '.';
    }
    --at_;
  }
  void boolean(bool value) { value ? text("true") : text("false"); }
  std::string_view written() const { return {buffer_, static_cast<std::size_t>(at_ - buffer_)}; }

 private:
  char buffer_[384];
  char* at_ = buffer_;
};

}  // namespace

void appendLine(std::string& out, std::string_view time, SourceId source, Event const& event) {
  if (std::string_view const members = event.written.members; !members.empty()) {
    LineWriter tail;
    tail.text(",\"source\":");
    tail.number(source);
    tail.text("}\n");
    out += '{';
    if (!time.empty()) out.append("\"t\":").append(time).append(",");
    out.append(members).append(tail.written());
    return;
  }
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
  isControllers ? line.text(R"("from":"controller","op":")") : line.text(R"("from":"evpn","op":")");
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
