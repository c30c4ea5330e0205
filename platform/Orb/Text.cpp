#include "Orb/Text.h"

#include <ostream>

namespace Orb {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The number, or nothing where it exceeds `max`.
bool readDigits(TextCursor& text, uint64_t max, uint64_t& value) {
  std::string_view const rest = text.rest();
  size_t count = 0;
  bool fits = true;
  value = 0;
  for (; count < rest.size() && isDigit(rest[count]); ++count) {
    auto const digit = static_cast<uint64_t>(rest[count] - '0');
    fits = fits && digit <= max && value <= (max - digit) / 10;
    if (fits) value = value * 10 + digit;
  }
  if (count == 0) text.fail("a digit");
  if (count > 1 && rest.front() == '0') text.fail("a number without leading zeros");
  text.skip(count);
  return fits;
}

}  // namespace

std::ostream& writeText(std::ostream& out, std::string_view text) {
  out.width(0);
  return out << text;
}

void TextCursor::expect(std::string_view piece) {
  if (!rest().starts_with(piece)) fail('"' + std::string(piece) + '"');
  position_ += piece.size();
}

void TextCursor::expectEnd() const {
  if (!atEnd()) fail("the end");
}

void TextCursor::fail(std::string_view expectation) const {
  throw ParseError(position_, expectation, rest());
}

uint64_t parseUnsigned(TextCursor& text, uint64_t max, std::string_view rangeText) {
  uint64_t value = 0;
  if (!readDigits(text, max, value)) throw RangeError(std::string(rangeText));
  return value;
}

uint64_t parseUnsigned(TextCursor& text, uint64_t max) {
  uint64_t value = 0;
  if (!readDigits(text, max, value)) throw RangeError("value > " + std::to_string(max) + " not allowed");
  return value;
}

bool parseText(TextCursor& text, std::type_identity<bool>) {
  bool const value = text.rest().starts_with("true");
  if (!value && !text.rest().starts_with("false")) text.fail("\"true\" or \"false\"");
  text.skip(value ? 4 : 5);
  return value;
}

std::string parseText(TextCursor& text, std::type_identity<std::string>) {
  std::string all(text.rest());
  text.skip(all.size());
  return all;
}

}  // namespace Orb
