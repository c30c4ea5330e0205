#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Protocol {

/// A place in the engine's source that reads or writes a shared word.
struct Access {
  std::string_view path;
  int line = 0;

  /// Without folders.
  std::string_view file() const { return path.substr(path.rfind('/') + 1); }
  friend bool operator==(Access const& left, Access const& right) {
    return left.line == right.line && left.file() == right.file();
  }
  friend bool operator<(Access const& left, Access const& right) {
    return left.line != right.line ? left.line < right.line : left.file() < right.file();
  }
};

/// Time in a table's memory: the number of stores that the writer had made.
using Time = uint32_t;

/// A table's file as C++20 lets a reader see it.
///
/// The one writer never reads what others write, since nobody else writes; so what it stores, in which order,
/// does not depend on its readers, and is recorded before any of them runs. What a reader is free to do is
/// then all in what its loads return: any store of that word
///   - that is not older than the last one that happens before the load. What happens before is the writer's
///     program up to a point in time, the reader's view: the latest release store that an acquire load of the
///     reader has returned;
///   - and not older than what it read from that word before (coherence).
/// A relaxed load, or one that returns a relaxed store, leaves the view as it is; later relaxed stores of the
/// writer do not continue a release sequence since C++20. There are no fences, no read-modify-writes and no
/// sequentially consistent accesses, so there is nothing else. Load buffering, which such models leave out
/// mostly, cannot be: it takes a store that depends on a load of each side.
///
/// Words of the column are bytes, which are read in eights too: each byte of them is a word of its own here.
class Memory {
 public:
  // The writer's side.

  /// The file's bytes from `offset` on are mapped here.
  void mapped(void const* address, size_t size, uint64_t offset);
  void unmapped(void const* address);
  /// Everything stored so far, which is `bytes`, happened before all; stores are recorded from now on.
  void record(std::vector<uint8_t> bytes);
  /// Records no more. Returns whether all of `bytes`, the file as it is now, came about by recorded stores.
  bool stopRecording(std::vector<uint8_t> const& bytes);
  void store(void const* address, size_t size, uint64_t value, bool releases, Access const& access);
  /// The writer's process stores, by a system call.
  void storeAt(uint64_t offset, uint64_t value);
  Time now() const { return now_; }

  // A reader's.

  /// A reader's mapping of the whole file. Nothing is there: it may not be touched.
  void readAt(void const* address, size_t size);
  /// A reader begins, to whom all is visible that was stored until then.
  void beginReader(Time view);
  Time view() const { return view_; }
  /// Something else than a load makes visible to the reader what was stored until then.
  void viewIs(Time view) { view_ = std::max(view_, view); }
  /// Sets `value` if the address is in the table, else returns false.
  bool load(void const* address, size_t size, bool acquires, Access const& access, uint64_t& value);

  /// Chooses one of so many stores, from the oldest on, for a load to return. Called where there are several.
  std::function<unsigned(unsigned)> choose;
  /// This one is relaxed, whatever the source says.
  Access weakened;
  /// If set, collects the accesses that stored or loaded with an order.
  std::set<Access>* ordered = nullptr;
  /// If set, collects in words what was loaded where there was a choice.
  std::vector<std::string>* told = nullptr;
  void tell(std::string const& what) const {
    if (told != nullptr) told->push_back(what);
  }

  /// Forgets all but what is set from outside.
  void forget();

 private:
  struct Store {
    Time time;
    uint64_t value;
    bool releases;
    Access access;
  };
  struct Word {
    uint64_t offset;
    size_t size;
    std::vector<Store> stores;  ///< The first one is what was there at the beginning.
    Time seen = 0;              ///< The last one that the reader has read.
  };
  struct Piece {
    uintptr_t begin;
    uintptr_t end;
    uint64_t offset;
  };

  uint64_t initial(uint64_t offset, size_t size) const;
  /// The word that begins there, if it was ever stored.
  Word* find(uint64_t offset);
  Word& word(uint64_t offset, size_t size);
  uint64_t loadWord(Word& word, bool acquires, Access const& access);

  std::vector<Piece> pieces_;
  Piece reader_{};
  std::vector<uint8_t> bytes_;
  bool records_ = false;
  std::vector<Word> words_;
  std::vector<uint32_t> wordAt_;  ///< By offset: the number of the word that begins there, and 1.
  Time now_ = 0;
  Time view_ = 0;
};

/// Of the one table at a time that there is.
extern Memory memory;

inline unsigned chooseOldest(unsigned) { return 0; }

}  // namespace Protocol
