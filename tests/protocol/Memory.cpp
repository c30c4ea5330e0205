#include "protocol/Memory.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace Protocol {

Memory memory;

void Memory::mapped(void const* address, size_t size, uint64_t offset) {
  auto const begin = std::bit_cast<uintptr_t>(address);
  pieces_.push_back({begin, begin + size, offset});
}

void Memory::forget() {
  Memory fresh;
  fresh.weakened = weakened;
  fresh.ordered = ordered;
  fresh.told = told;
  *this = std::move(fresh);
}

void Memory::unmapped(void const* address) {
  std::erase_if(pieces_,
                [&](Piece const& piece) { return piece.begin == std::bit_cast<uintptr_t>(address); });
}

void Memory::readAt(void const* address, size_t size) {
  auto const begin = std::bit_cast<uintptr_t>(address);
  reader_ = {begin, begin + size, 0};
}

void Memory::record(std::vector<uint8_t> bytes) {
  bytes_ = std::move(bytes);
  records_ = true;
}

bool Memory::stopRecording(std::vector<uint8_t> const& bytes) {
  records_ = false;
  std::vector<uint8_t> stored = bytes_;
  stored.resize(bytes.size());
  for (Word const& word : words_) std::memcpy(&stored[word.offset], &word.stores.back().value, word.size);
  return stored == bytes;
}

uint64_t Memory::initial(uint64_t offset, size_t size) const {
  uint64_t value = 0;
  // What the file grew by is zero.
  if (offset < bytes_.size()) std::memcpy(&value, bytes_.data() + offset, size);
  return value;
}

Memory::Word* Memory::find(uint64_t offset) {
  uint32_t const number = offset < wordAt_.size() ? wordAt_[offset] : 0;
  return number == 0 ? nullptr : &words_[number - 1];
}

Memory::Word& Memory::word(uint64_t offset, size_t size) {
  if (Word* const known = find(offset)) return *known;
  words_.push_back({offset, size, {{0, initial(offset, size), true, {}}}});
  wordAt_.resize(std::max(wordAt_.size(), offset + 1));
  wordAt_[offset] = static_cast<uint32_t>(words_.size());
  return words_.back();
}

void Memory::store(void const* address, size_t size, uint64_t value, bool releases, Access const& access) {
  if (!records_) return;
  auto const at = std::bit_cast<uintptr_t>(address);
  for (Piece const& piece : pieces_) {
    if (at < piece.begin || at >= piece.end) continue;
    if (releases && ordered != nullptr) ordered->insert(access);
    word(piece.offset + (at - piece.begin), size).stores.push_back({++now_, value, releases, access});
    return;
  }
}

void Memory::storeAt(uint64_t offset, uint64_t value) {
  if (records_) word(offset, sizeof value).stores.push_back({++now_, value, false, {}});
}

void Memory::beginReader(Time view) {
  view_ = view;
  for (Word& word : words_) word.seen = 0;
}

uint64_t Memory::loadWord(Word& word, bool acquires, Access const& access) {
  Time const oldest = std::max(view_, word.seen);
  auto const isLater = [](Time time, Store const& store) { return time < store.time; };
  auto const first = std::upper_bound(word.stores.begin(), word.stores.end(), oldest, isLater) - 1;
  auto const count = static_cast<unsigned>(word.stores.end() - first);
  Store const& store = first[count == 1 ? 0 : choose(count)];
  word.seen = store.time;
  bool const synchronizes =
      acquires && store.releases && access != weakened && (store.access != weakened || store.time == 0);
  if (synchronizes) viewIs(store.time);
  if (told != nullptr && count > 1) {
    auto const place = [](Access const& at) {
      return std::string(at.file()) + ":" + std::to_string(at.line);
    };
    tell(place(access) + " reads word " + std::to_string(word.offset) + " of " + std::to_string(store.time) +
         " (possible: " + std::to_string(first->time) + " to " + std::to_string(word.stores.back().time) +
         ")" + (store.time == 0 ? "" : ", stored in " + place(store.access)) +
         (synchronizes ? "" : ", not synchronized"));
  }
  return store.value;
}

bool Memory::load(void const* address, size_t size, bool acquires, Access const& access, uint64_t& value) {
  auto const at = std::bit_cast<uintptr_t>(address);
  if (at < reader_.begin || at >= reader_.end) return false;
  uint64_t const offset = at - reader_.begin;
  if (acquires && ordered != nullptr) ordered->insert(access);
  if (Word* const known = find(offset); known != nullptr && known->size == size) {
    value = loadWord(*known, acquires, access);
    return true;
  }
  value = initial(offset, size);
  for (size_t byte = 0; size > 1 && byte < size; ++byte) {
    Word* const part = find(offset + byte);
    if (part == nullptr) continue;
    unsigned const shift = static_cast<unsigned>(byte) * 8;
    value = (value & ~(uint64_t{0xFF} << shift)) | loadWord(*part, acquires, access) << shift;
  }
  return true;
}

}  // namespace Protocol
