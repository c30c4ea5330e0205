#include "Vxlan/VniExt.h"

#include "Orb/Text.h"
#include "Orb/Value.h"

namespace Vxlan {

namespace {

[[maybe_unused]] Orb::ValueType const& registeredVniExt = Orb::valueType<VniExt>();

}  // namespace

std::string VniExt::stringValue(bool isLabelled) const {
  std::string text = isLabelled ? "vni " : "";
  appendText(text, vni_);
  return text;
}

VniExt parseText(Orb::TextCursor& text, std::type_identity<VniExt>) { return VniExt(Orb::parse<Vni>(text)); }

}  // namespace Vxlan
