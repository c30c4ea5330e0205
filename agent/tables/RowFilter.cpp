#include "agent/tables/RowFilter.h"

#include <algorithm>
#include <array>

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

Wirix::EthAddr macFromPeople(std::string_view text) {
  std::string lower;
  for (char const c : text) lower.push_back(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
  // Groups of digits and what stands between them; '\0' for nothing.
  constexpr std::array<std::pair<std::size_t, char>, 3> notations = {{{2, '-'}, {4, '.'}, {12, '\0'}}};
  for (auto const& [size, separator] : notations) {
    std::string digits;
    bool fits = true;
    for (std::size_t i = 0; i < lower.size(); ++i) {
      bool const isGap = i % (size + 1) == size;
      if (isGap)
        fits = fits && lower[i] == separator;
      else
        digits.push_back(lower[i]);
    }
    if (!fits || digits.size() != 12 || lower.size() != 12 + 12 / size - 1) continue;
    for (std::size_t i = 10; i > 0; i -= 2) digits.insert(i, ":");
    return Wirix::EthAddr(digits);
  }
  return Wirix::EthAddr(lower);
}

}  // namespace Agent
