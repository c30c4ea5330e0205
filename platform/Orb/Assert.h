#pragma once

#include "Orb/SourceLocation.h"

namespace Orb::Impl {

/// Prints "assertion failed: <expression>, function <signature>, <file>:<line>" to standard error in one
/// write and aborts. Allocates nothing, so it also reports faults found while memory is short. For
/// `ORB_ASSERT` only.
[[noreturn, gnu::cold, gnu::noinline]] void assertionFailed(char const* expression, SourceLocation where);

/// Prints that a null `Orb::Ptr` was dereferenced, `function` (the signature of the accessor, which names the
/// pointer's type) and the code that called it (symbol and offset in its module, for addr2line), then aborts.
/// Must be called from an accessor that is inlined into the faulty code, whose address it takes as its own
/// return address.
[[noreturn, gnu::cold, gnu::noinline]] void nullDereference(char const* function);

/// Prints "null Orb::Ptr dereferenced: <expression>, function <signature>, <file>:<line>" and aborts. For
/// `ORB_REF` only.
[[noreturn, gnu::cold, gnu::noinline]] void nullReference(char const* expression, SourceLocation where);

/// `fault` does not return. It is a function, so that nothing is made ready for the report but where there is
/// one.
template <class Pointer, class Fault>
[[gnu::always_inline]] inline auto& reference(Pointer const& pointer, Fault const& fault) {
  if (!pointer) [[unlikely]]
    fault();
  return *pointer.get();
}

}  // namespace Orb::Impl

/// Stops the process when `expr` is false, in every build type: an invariant that does not hold leaves no
/// state that could be trusted to go on with. `expr` is evaluated exactly once and printed as it is written.
#define ORB_ASSERT(expr)      \
  (static_cast<bool>(expr)    \
       ? static_cast<void>(0) \
       : ::Orb::Impl::assertionFailed(#expr, {__FILE__, uint32_t{__LINE__}, __PRETTY_FUNCTION__}))

/// The object that a counted reference refers to, such as `ORB_REF(hostTableOut()).hostDel(key)`: as `->`
/// does, but a null one is reported with its expression, function, file and line. `pointer` is evaluated
/// exactly once.
#define ORB_REF(pointer)                                                            \
  (::Orb::Impl::reference((pointer), [function = __PRETTY_FUNCTION__] {             \
    ::Orb::Impl::nullReference(#pointer, {__FILE__, uint32_t{__LINE__}, function}); \
  }))
