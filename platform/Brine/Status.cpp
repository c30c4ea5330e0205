#include "Brine/Status.h"

#include <array>
#include <cstddef>
#include <ostream>

namespace Brine {
namespace {

constexpr std::array<std::string_view, 10> statusTexts = {
    "unmounted",    "mounted", "no table", "busy",         "not permitted",
    "incompatible", "corrupt", "no space", "no resources", "writer gone"};

}  // namespace

std::string_view toText(MountStatus status) { return statusTexts[static_cast<size_t>(status)]; }

std::ostream& operator<<(std::ostream& out, MountStatus status) { return out << toText(status); }

}  // namespace Brine
