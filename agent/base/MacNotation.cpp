#include "agent/base/MacNotation.h"

#include <array>
#include <string>
#include <utility>

namespace Agent {

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
