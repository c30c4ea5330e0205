#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "Orb/Hash.h"
#include "Orb/ValueTraits.h"

namespace Orb {

/// The name of an entity in its directory.
class Name {
 public:
  Name() = default;
  Name(std::string text) : text_(std::move(text)) {}
  Name(std::string_view text) : text_(text) {}
  Name(char const* text) : text_(text) {}

  std::string const& text() const noexcept { return text_; }
  uint32_t hash() const noexcept { return hashOf(std::string_view(text_)); }
  friend bool operator==(Name const&, Name const&) = default;
  friend auto operator<=>(Name const&, Name const&) = default;
  friend void appendText(std::string& out, Name const& name) { out += name.text_; }

 private:
  std::string text_;
};

}  // namespace Orb

template <>
struct Orb::ValueTraits<Orb::Name> {
  static std::string name() { return "Orb::Name"; }
};
