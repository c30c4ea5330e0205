#pragma once

#include <cstddef>

namespace TestSupport {

/// Whether this program was built with a sanitizer.
extern bool const isSanitized;

/// The number of rounds, rows or events for a heavy test that wants `n` of them: `n` itself, or the
/// percentage of it that the environment variable QOREVPN_TEST_SCALE gives (1 to 100), at least 1. Runs under
/// a sanitizer use it to keep the same tests within minutes. Raises where the value is no such number.
std::size_t scaled(std::size_t n);

}  // namespace TestSupport
