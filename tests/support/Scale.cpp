#include "support/Scale.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace TestSupport {

bool const isSanitized = QOREVPN_SANITIZED;

static std::size_t percentage() {
  char const* const text = std::getenv("QOREVPN_TEST_SCALE");
  if (!text) return 100;
  std::string_view const digits = text;
  std::size_t value = 0;
  auto const [end, error] = std::from_chars(digits.begin(), digits.end(), value);
  if (error != std::errc() || end != digits.end() || value < 1 || value > 100) {
    std::fprintf(stderr, "QOREVPN_TEST_SCALE is '%s', not a percentage from 1 to 100\n", text);
    std::exit(2);
  }
  return value;
}

std::size_t scaled(std::size_t n) {
  static std::size_t const percent = percentage();
  return std::max<std::size_t>(1, n / 100 * percent + n % 100 * percent / 100);
}

}  // namespace TestSupport
