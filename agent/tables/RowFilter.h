/// Agent::RowFilter: which rows people want to see.
#pragma once

#include <string_view>
#include <vector>

#include "Vxlan/Vni.h"
#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"

namespace Agent {

/// A range of IPv4 addresses whose first bits are equal; of one address where all 32 are.
class IpPrefix {
 public:
  /// "10.99.0.11" or "10.99.0.0/24". Raises Orb::Error, also for bits behind the prefix that are not zero.
  explicit IpPrefix(std::string_view text);

  bool contains(Wirix::IpAddr addr) const { return (addr.value() & mask_) == first_.value(); }

 private:
  Wirix::IpAddr first_;
  std::uint32_t mask_ = 0xFFFFFFFF;
};

/// Rows are wanted that agree with one item of every list that is not empty.
struct RowFilter {
  std::vector<Vxlan::Vni> vnis;
  std::vector<Wirix::EthAddr> macs;
  std::vector<IpPrefix> vteps;

  bool isEmpty() const { return vnis.empty() && macs.empty() && vteps.empty(); }
  bool takesVni(Vxlan::Vni vni) const;
  bool takesMac(Wirix::EthAddr mac) const;
  bool takesVtep(Wirix::IpAddr vtep) const;
};

}  // namespace Agent
