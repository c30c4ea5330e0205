#pragma once

#include <cstdint>
#include <vector>

#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"
#include "Wirix/Seqno32.h"

namespace VxlanController {

/// An entry of a VNI's MAC table: the VTEP behind which a MAC address lives. A default-constructed one (all
/// zero, preference 16) stands for an absent entry wherever one is looked up.
class MacVtepV2 {
 public:
  static constexpr uint8_t defaultPreference = 16;

  constexpr MacVtepV2() = default;
  constexpr explicit MacVtepV2(Wirix::EthAddr macAddr, Wirix::IpAddr vtepAddr = {}, Seqno32 seqNo = {},
                               uint8_t preference = defaultPreference)
      : macAddr_(macAddr), vtepAddr_(vtepAddr), seqNo_(seqNo), preference_(preference) {}

  constexpr Wirix::EthAddr const& macAddr() const noexcept { return macAddr_; }
  constexpr Wirix::IpAddr const& vtepAddr() const noexcept { return vtepAddr_; }
  /// Higher wins between entries of one MAC address.
  constexpr Seqno32 const& seqNo() const noexcept { return seqNo_; }
  constexpr uint8_t preference() const noexcept { return preference_; }

  friend constexpr bool operator==(MacVtepV2 const&, MacVtepV2 const&) = default;

 private:
  Wirix::EthAddr macAddr_;
  Wirix::IpAddr vtepAddr_;
  Seqno32 seqNo_;
  uint8_t preference_ = defaultPreference;
};

/// An entry of a VNI's multipath table: several VTEPs behind which a MAC address lives.
struct MacVtepMultiPathV2 {
  Wirix::EthAddr macAddr;
  std::vector<Wirix::IpAddr> vtepAddrs;
  friend bool operator==(MacVtepMultiPathV2 const&, MacVtepMultiPathV2 const&) = default;
};

}  // namespace VxlanController
