#include "support/Scale.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace TestSupport {

bool const isSanitized = QOREVPN_SANITIZED;

static std::size_t percentage() {
  char const* const text = std::getenv("QOREVPN_TEST_SCALE");
  if (!text) return 100;
  std::size_t const value = std::stoul(text);
  if (value >= 1 && value <= 100 && text == std::to_string(value)) return value;
  throw std::out_of_range("QOREVPN_TEST_SCALE is no percentage from 1 to 100");
}

std::size_t scaled(std::size_t n) {
  static std::size_t const percent = percentage();
  return std::max<std::size_t>(1, n / 100 * percent + n % 100 * percent / 100);
}

}  // namespace TestSupport
