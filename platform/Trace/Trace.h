#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Orb/SourceLocation.h"
#include "Orb/Text.h"

/// The trace facility. A source unit has one static handle and traces through it:
///
///   static Trace::Handle traceHandle("QorEvpnModeSm");
///   TRACE(traceHandle, 8, "controllerdbStatus()->enabled() ", controllerdbStatus()->enabled());
///
/// A handler that traces its entry and its return with one label opens a scope:
///
///   TRACE_SCOPE(traced, txTrace, "VniFdbStatusSm(", vni, ")::handleHost(", macAddr, ")");
///
/// Levels 0 to 9 are switches, each on or off by itself, not thresholds. They belong to the handle's name:
/// handles of one name share them, and they may be set before the first such handle exists. Everything here
/// may be called from any thread, also from a sink.
namespace Trace {

inline constexpr unsigned levelCount = 10;

/// One bit a level: level n is bit n.
using LevelMask = uint16_t;
inline constexpr LevelMask allLevels = (1U << levelCount) - 1;

/// What a source unit traces through. Registers itself; must outlive every trace through it.
class Handle {
 public:
  explicit Handle(std::string_view name);
  ~Handle();
  Handle(Handle const&) = delete;
  Handle& operator=(Handle const&) = delete;

  std::string const& name() const { return name_; }
  /// Levels above 9 are never enabled.
  bool isEnabled(unsigned level) const {
    return level < levelCount && (mask_.load(std::memory_order_relaxed) & (1U << level)) != 0;
  }
  bool isAnyEnabled(LevelMask levels) const { return (mask_.load(std::memory_order_relaxed) & levels) != 0; }

 private:
  friend void levelsIs(std::string_view handle, LevelMask levels);

  std::string name_;
  // Relaxed: a switch takes effect soon, and orders nothing else.
  std::atomic<uint32_t> mask_;
};

/// Switches exactly these levels on for all handles of that name, present and future; bits above level 9 are
/// dropped.
void levelsIs(std::string_view handle, LevelMask levels);
/// The levels that are on for that name; none for a name never heard of.
LevelMask levels(std::string_view handle);
/// The names that have been set or have a handle, sorted.
std::vector<std::string> handleNames();

/// Sets the levels by a text, "QorEvpnModeSm/3,4,8" or "QorEvpnModeSm/*" for all of them. Raises
/// `Orb::ParseError`, or `Orb::RangeError` for a level above 9, and then changes nothing.
void enable(std::string_view handleAndLevels);

/// One trace. The text and the handle's name belong to the tracer: a sink copies what it keeps. The time is
/// the sink's to take.
struct Record {
  std::string_view handle;
  unsigned level;
  Orb::SourceLocation where;  ///< With the bare name of the function.
  std::string_view text;
};

/// Takes the traces, on the tracing thread and in the middle of what it does. May trace itself. An exception
/// goes to the tracing code.
using Sink = std::function<void(Record const&)>;

/// Replaces the sink and returns the former one; an empty sink stands for the default one. A trace under way
/// on another thread may still reach the former sink.
Sink sinkIs(Sink sink);

/// Writes a trace as one line, in one write: time (UTC), level, handle, function, file:line, text.
void writeTo(int fd, Record const& record);
/// The default sink.
void writeToStandardError(Record const& record);

namespace Impl {

// The text of one trace. Takes the thread's spare string, with the room that earlier traces made in it, and
// gives it back; a trace within a trace finds the spare taken and fills a string of its own.
class Buffer {
 public:
  Buffer() noexcept;
  ~Buffer();
  Buffer(Buffer const&) = delete;
  Buffer& operator=(Buffer const&) = delete;

  std::string& text() { return text_; }

 private:
  std::string* const spare_;  // asked for once: a thread's variables are dear in a shared library
  std::string text_;
};

void deliver(Record const& record);

template <Orb::Writable... Pieces>
[[gnu::noinline, gnu::cold]] void write(Handle const& handle, unsigned level,
                                        Orb::SourceLocation const& where, Pieces const&... pieces) {
  Buffer buffer;
  Orb::appendTexts(buffer.text(), pieces...);
  deliver({handle.name(), level, where, buffer.text()});
}

// The two records of a scope. They take copies, so that a scope whose levels are off need not lie in memory.
inline constexpr unsigned entryLevel = 3, returnLevel = 4;
inline constexpr LevelMask scopeLevels = 1U << entryLevel | 1U << returnLevel;

template <class Label>
[[gnu::noinline, gnu::cold]] void writeLabel(Handle const& handle, unsigned level,
                                             Orb::SourceLocation const& where, Label label,
                                             std::string_view end) {
  Buffer buffer;
  label(buffer.text());
  buffer.text().append(end);
  deliver({handle.name(), level, where, buffer.text()});
}

// Returns the number of exceptions under way.
template <class Label>
[[gnu::noinline, gnu::cold]] int beginScope(Handle const& handle, Orb::SourceLocation const& where,
                                            Label label) {
  if (handle.isEnabled(entryLevel)) writeLabel(handle, entryLevel, where, label, "");
  return std::uncaught_exceptions();
}

template <class Label>
[[gnu::noinline, gnu::cold]] void endScope(Handle const& handle, Orb::SourceLocation const& where,
                                           Label label, int exceptions) {
  if (exceptions == std::uncaught_exceptions()) writeLabel(handle, returnLevel, where, label, " return");
}

}  // namespace Impl

/// Traces the label at level 3 where it begins, and the label followed by " return" at level 4 where its
/// block is left, unless it was dismissed or the block is left by an exception. Both records carry the
/// place of the scope. The label's pieces are evaluated for each record anew, so they must live as long as
/// the scope. It is a piece of other traces itself: its label. Made by TRACE_SCOPE only.
template <class Label>
class Scope {
 public:
  // Inlined with what leaves the scope, so that one that writes nothing need not lie in memory.
  [[gnu::always_inline]] Scope(Handle const& handle, Orb::SourceLocation const& where, Label label)
      : handle_(handle), where_(where), label_(label) {
    if (handle_.isAnyEnabled(Impl::scopeLevels)) [[unlikely]]
      exceptions_ = Impl::beginScope(handle_, where_, label_);
  }
  [[gnu::always_inline]] ~Scope() noexcept(false) {
    if (!isDismissed_ && handle_.isEnabled(Impl::returnLevel)) [[unlikely]]
      Impl::endScope(handle_, where_, label_, exceptions_);
  }
  Scope(Scope const&) = delete;
  Scope& operator=(Scope const&) = delete;

  /// No return will be traced.
  void dismiss() noexcept { isDismissed_ = true; }

  friend void appendText(std::string& out, Scope const& scope) { scope.label_(out); }

 private:
  Handle const& handle_;
  Orb::SourceLocation const& where_;
  Label const label_;
  int exceptions_ = 0;
  bool isDismissed_ = false;
};

}  // namespace Trace

/// Traces the texts of the pieces, one after the other, when `level` (0 to 9) is on for `handle`. When it is
/// off, this is one test of the handle's mask and the pieces are not evaluated.
#define TRACE(handle, level, ...)                                                                \
  do {                                                                                           \
    if ((handle).isEnabled(level)) [[unlikely]] {                                                \
      static constexpr ::Orb::SourceLocation tracedFrom{__FILE__, uint32_t{__LINE__}, __func__}; \
      ::Trace::Impl::write((handle), (level), tracedFrom, __VA_ARGS__);                          \
    }                                                                                            \
  } while (false)

/// Declares the `Trace::Scope` of that name, whose label is the texts of the pieces, one after the other.
/// While levels 3 and 4 are off for `handle`, the pieces are not evaluated. One a function.
#define TRACE_SCOPE(name, handle, ...)                                                      \
  static constexpr ::Orb::SourceLocation scopeFrom{__FILE__, uint32_t{__LINE__}, __func__}; \
  ::Trace::Scope name((handle), scopeFrom,                                                  \
                      [&](std::string& scopeLabel) { ::Orb::appendTexts(scopeLabel, __VA_ARGS__); })
