#pragma once

#include <algorithm>
#include <cstdint>

#include "Brine/rows/KeyWords.h"

namespace Brine {

/// A row that its reader is being told of, or walks over: until the teller is done, look-ups of the key give
/// this row, so that what a callback reads is what it was called for. Pins of a table form a list, the newest
/// first.
template <class Row>
class Pin {
 public:
  Pin() = default;
  Pin(Pin const&) = delete;
  Pin& operator=(Pin const&) = delete;
  ~Pin() { unlink(); }

  /// Pins the key with `row`, or its absence for null. The row must outlive the pin.
  void link(Pin*& list, uint64_t const* keyWords, Row const* row) {
    unlink();
    std::copy_n(keyWords, Codec<Row>::keyWords, key_);
    row_ = row;
    next_ = list;
    if (next_ != nullptr) next_->link_ = &next_;
    list = this;
    link_ = &list;
  }
  void unlink() {
    if (link_ == nullptr) return;
    *link_ = next_;
    if (next_ != nullptr) next_->link_ = link_;
    link_ = nullptr;
  }

  Pin* next() const { return next_; }
  Row const* row() const { return row_; }
  bool isFor(uint64_t const* keyWords) const { return KeyWords<Row>::equal(key_, keyWords); }

 private:
  Pin* next_ = nullptr;
  Pin** link_ = nullptr;
  uint64_t key_[Codec<Row>::keyWords];
  Row const* row_ = nullptr;
};

}  // namespace Brine
