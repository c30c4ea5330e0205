#include "support/Scale.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace TestSupport {

bool const isSanitized = QOREVPN_SANITIZED;

std::size_t scaled(std::size_t n) {
  char const* const text = std::getenv("QOREVPN_TEST_SCALE");
  int const percent = text ? std::stoi(text) : 100;
  if (percent < 1 || percent > 100)
    throw std::out_of_range("QOREVPN_TEST_SCALE is no percentage from 1 to 100");
  return std::max<std::size_t>(1, n * static_cast<std::size_t>(percent) / 100);
}

}  // namespace TestSupport
