#pragma once

// Stands in front of platform/Brine/layout/Word.h where these tests compile the engine: their include path
// names this folder first. Everything but the four accesses is the engine's own.
#define loadAcquire loadAcquireOfMachine
#define loadRelaxed loadRelaxedOfMachine
#define storeRelease storeReleaseOfMachine
#define storeRelaxed storeRelaxedOfMachine
#include "platform/Brine/layout/Word.h"
#undef loadAcquire
#undef loadRelaxed
#undef storeRelease
#undef storeRelaxed

#include "protocol/Memory.h"

namespace Brine {

template <class Word>
inline Word load(Word const* word, bool acquires, char const* file, int line) {
  uint64_t value = 0;
  bool const isShared = Protocol::memory.load(word, sizeof(Word), acquires, {file, line}, value);
  return isShared ? static_cast<Word>(value) : loadRelaxedOfMachine(word);
}

template <class Word>
inline Word loadAcquire(Word const* word, char const* file = __builtin_FILE(), int line = __builtin_LINE()) {
  return load(word, true, file, line);
}

template <class Word>
inline Word loadRelaxed(Word const* word, char const* file = __builtin_FILE(), int line = __builtin_LINE()) {
  return load(word, false, file, line);
}

template <class Word>
inline void storeRelease(Word* word, Word value, char const* file = __builtin_FILE(),
                         int line = __builtin_LINE()) {
  Protocol::memory.store(word, sizeof(Word), value, true, {file, line});
  storeRelaxedOfMachine(word, value);
}

template <class Word>
inline void storeRelaxed(Word* word, Word value, char const* file = __builtin_FILE(),
                         int line = __builtin_LINE()) {
  Protocol::memory.store(word, sizeof(Word), value, false, {file, line});
  storeRelaxedOfMachine(word, value);
}

}  // namespace Brine
