#include "agent/tables/RowFilter.h"

#include <algorithm>

#include "Orb/Text.h"

namespace Agent {

IpPrefix::IpPrefix(std::string_view text) : first_(text.substr(0, text.find('/'))) {
  if (auto const slash = text.find('/'); slash != std::string_view::npos) {
    Orb::TextCursor length(text.substr(slash + 1));
    auto const bits = Orb::parseUnsigned(length, 32, "the length of a prefix is at most 32");
    length.expectEnd();
    mask_ = bits == 0 ? 0 : 0xFFFFFFFFU << (32 - bits);
  }
  if (!contains(first_)) {
    throw Orb::ParseError(0, Orb::toText(Wirix::IpAddr(first_.value() & mask_)), std::string(text));
  }
}

bool RowFilter::takesVni(Vxlan::Vni vni) const {
  return vnis.empty() || std::find(vnis.begin(), vnis.end(), vni) != vnis.end();
}

bool RowFilter::takesMac(Wirix::EthAddr mac) const {
  return macs.empty() || std::find(macs.begin(), macs.end(), mac) != macs.end();
}

bool RowFilter::takesVtep(Wirix::IpAddr vtep) const {
  return vteps.empty() || std::any_of(vteps.begin(), vteps.end(),
                                      [&](IpPrefix const& prefix) { return prefix.contains(vtep); });
}

}  // namespace Agent
