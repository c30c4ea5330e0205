// Any text is read as a value of every registered type. What is read must print back to the same text, and a
// reader that takes a value from the front of a text must say how much it took, or leave its place.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Orb/Errors.h"
#include "Orb/Value.h"
#include "VxlanController/QorEvpnValues.h"

namespace {

void require(bool holds, std::string const& what, std::string const& text) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", what.c_str(), text.c_str());
  std::abort();
}

/// Calls `read`; false if it refused the text.
template <class Read>
bool isRead(Read const& read) {
  try {
    read();
    return true;
  } catch (Orb::ParseError const&) {
  } catch (Orb::RangeError const&) {
  }
  return false;
}

template <class Value>
void readFront(std::string const& text) {
  auto current = text.begin();
  std::string printed;
  if (isRead([&] { printed = QorEvpn::valueToStrep(Value(current, text.end())); })) {
    require(printed == std::string(text.begin(), current), "the front prints as " + printed, text);
  } else {
    require(current == text.begin(), "a refused text moved the reader", text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text(data, data + size);
  static std::vector<std::string> const names = Orb::ValueType::names();
  for (std::string const& name : names) {
    std::string printed;
    if (isRead([&] { printed = Orb::ValueType::byName(name).parse(text).text(); })) {
      require(printed == text, name + " prints as " + printed, text);
    }
  }
  readFront<QorEvpn::MacVniPair>(text);
  readFront<QorEvpn::Host>(text);
  readFront<QorEvpn::VniVtepPair>(text);
  readFront<QorEvpn::FloodEntry>(text);
  return 0;
}
