#pragma once

#include <cstring>

#include "peers/BrineStore.h"

namespace Bench {

/// What a host row holds beside its key, as the peers store it.
struct Value {
  uint32_t vtepAddr = 0;
  uint32_t seqNo = 0;
  uint8_t preference = 0;

  Value() = default;
  explicit Value(QorEvpn::Host const& host)
      : vtepAddr(host.vtepAddr().value()), seqNo(host.seqNo().value()), preference(host.preference()) {}
  uint64_t sum() const { return uint64_t{vtepAddr} + seqNo; }
  friend bool operator==(Value const&, Value const&) = default;
};

/// Key and row as the twenty bytes that a store of byte strings keeps: MAC address and VNI most significant
/// octet first, so that they sort as `MacVniPair` does.
struct Bytes {
  char key[10];
  char value[10];

  explicit Bytes(QorEvpn::MacVniPair const& pair) {
    for (int i = 0; i < 6; ++i) key[i] = static_cast<char>(pair.macAddr().value() >> (40 - 8 * i));
    for (int i = 0; i < 4; ++i) key[6 + i] = static_cast<char>(pair.vni().value() >> (24 - 8 * i));
  }
  explicit Bytes(QorEvpn::Host const& host) : Bytes(host.key()) {
    Value const row(host);
    std::memcpy(value, &row.vtepAddr, 4);
    std::memcpy(value + 4, &row.seqNo, 4);
    value[8] = static_cast<char>(row.preference);
    value[9] = 0;
  }
  static Value valueOf(void const* value) {
    Value row;
    std::memcpy(&row.vtepAddr, value, 4);
    std::memcpy(&row.seqNo, static_cast<char const*>(value) + 4, 4);
    return row;
  }
  static uint64_t sumOf(void const* value) { return valueOf(value).sum(); }
};

}  // namespace Bench
