#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#include "Orb/Errors.h"

/// Text forms. Two functions, found by argument-dependent look-up, give a type its text:
///
///   void appendText(std::string& out, T const& value);           // writes the one text of the value
///   T parseText(Orb::TextCursor& text, std::type_identity<T>);   // reads it back
///                                                                // or raises ParseError or RangeError
///
/// Each value has exactly one text and a parser accepts nothing else: no blanks, no sign, no leading zero, no
/// other case. A parser returns the value or raises an error, so no partial value can be seen. Writing
/// allocates nothing but what `out` grows by.
namespace Orb {

// ---- Writing ----

/// The integers that are numbers; `bool` and `char` have texts of their own.
template <class T>
concept TextInteger = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char>;

inline void appendText(std::string& out, std::string_view text) { out.append(text); }

/// A template, so that no pointer is taken for a bool.
template <std::same_as<bool> T>
void appendText(std::string& out, T value) {
  out.append(value ? "true" : "false");
}

template <std::same_as<char> T>
void appendText(std::string& out, T character) {
  out.push_back(character);
}

/// Decimal.
template <TextInteger T>
void appendText(std::string& out, T value) {
  char digits[24];
  out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

template <class T>
concept Writable = requires(std::string& out, T const& value) {
  appendText(out, value);
};

/// Appends the texts of all `pieces`, in order.
template <Writable... Pieces>
void appendTexts(std::string& out, Pieces const&... pieces) {
  (appendText(out, pieces), ...);
}

template <Writable T>
std::string toText(T const& value) {
  std::string text;
  appendText(text, value);
  return text;
}

/// For `operator<<` of values: writes the text as it is, whatever width and fill the stream is set to, and
/// takes the width off the stream, as every such operator does.
std::ostream& writeText(std::ostream& out, std::string_view text);

// ---- Reading ----

/// A text and how far it has been read. Refers to characters that the caller owns.
class TextCursor {
 public:
  explicit TextCursor(std::string_view text) : text_(text) {}

  /// Characters read so far.
  size_t position() const { return position_; }
  std::string_view rest() const { return text_.substr(position_); }
  bool atEnd() const { return position_ == text_.size(); }
  /// The next character, or the NUL character at the end.
  char next() const { return atEnd() ? '\0' : text_[position_]; }
  /// Moves on by `count` characters, at most to the end.
  void skip(size_t count) {
    position_ += count < text_.size() - position_ ? count : text_.size() - position_;
  }

  /// Reads `piece`, which must stand here verbatim.
  void expect(std::string_view piece);
  void expectEnd() const;
  /// Raises `ParseError` for this place; `expectation` completes "expected ...".
  [[noreturn]] void fail(std::string_view expectation) const;

 private:
  std::string_view text_;
  size_t position_ = 0;
};

/// Reads a decimal number of digits only, without leading zeros, as far as the digits go. More than `max`
/// raises `RangeError` with `rangeText`, however many digits there are.
uint64_t parseUnsigned(TextCursor& text, uint64_t max, std::string_view rangeText);
/// The same for plain integers, whose range error names the limit: "value > 255 not allowed".
uint64_t parseUnsigned(TextCursor& text, uint64_t max);

/// "true" or "false".
bool parseText(TextCursor& text, std::type_identity<bool>);
/// Everything that is left: a string has no end of its own.
std::string parseText(TextCursor& text, std::type_identity<std::string>);

template <TextInteger T>
requires std::unsigned_integral<T> T parseText(TextCursor& text, std::type_identity<T>) {
  return static_cast<T>(parseUnsigned(text, static_cast<T>(-1)));
}

template <class T>
concept Parsable = requires(TextCursor& text) {
  { parseText(text, std::type_identity<T>()) } -> std::same_as<T>;
};

/// Reads a T at the cursor.
template <Parsable T>
T parse(TextCursor& text) {
  return parseText(text, std::type_identity<T>());
}

/// Reads the T that is the attribute `name` of a greater value; a range error is raised again for that
/// attribute.
template <Parsable T>
T parseAttribute(TextCursor& text, std::string_view name) {
  try {
    return parse<T>(text);
  } catch (RangeError const& error) {
    throw AttributeRangeError(name, error);
  }
}

/// A place in a string that is read; the string may be const or not.
template <class T>
concept StringIterator =
    std::same_as<T, std::string::iterator> || std::same_as<T, std::string::const_iterator>;

/// Reads a T at `current` and advances `current` behind it; an error leaves `current` where it was.
template <Parsable T, StringIterator Iterator>
T parseAt(Iterator& current, std::string::const_iterator end) {
  TextCursor text(std::string_view(std::string::const_iterator(current), end));
  T value = parse<T>(text);
  current += static_cast<std::string::difference_type>(text.position());
  return value;
}

/// Reads a T that takes the whole text.
template <Parsable T>
T parseWhole(std::string_view whole) {
  TextCursor text(whole);
  T value = parse<T>(text);
  text.expectEnd();
  return value;
}

}  // namespace Orb
