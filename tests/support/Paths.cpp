#include "support/Paths.h"

namespace TestSupport {

std::string sourcePath(std::string_view relative) {
  return std::string(QOREVPN_SOURCE_DIR "/").append(relative);
}

std::string programPath() { return QOREVPN_PROGRAM; }

std::string modulePath() { return QOREVPN_MODULE; }

}  // namespace TestSupport
