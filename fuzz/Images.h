#pragma once

#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "Brine/TestRows.h"

/// A table's file, damaged as a script says, and everything that can be done with it.
class Images {
 public:
  using Image = std::vector<std::byte>;
  using Script = std::span<uint8_t const>;
  static constexpr size_t stepBytes = 12;

  Images() {
    TestFolder const folder;
    Brine::Table<TestRow> table;
    table.mount(folder.options(Brine::Mode::writer));
    // Forty rows, the most of them overwritten: the table grows twice.
    for (uint64_t i = 0; i < 120; ++i) {
      TestRow const row{{i % 40, static_cast<uint32_t>(i % 40 % 3)}, i * 0x9E3779B97F4A7C15U, i};
      written_.push_back(row);
      table.write(row);
      if (i % 5 == 0) table.remove({i / 2 % 40, 1});
    }
    if (table.statistics().fileBytes != regions_[std::size(regions_) - 1] + Brine::pageBytes) std::abort();
    table.unmount();
    std::ifstream file(folder.path() + "/table.table", std::ios::binary);
    std::string const bytes(std::istreambuf_iterator<char>(file), {});
    pristine_.resize(bytes.size());
    std::memcpy(pristine_.data(), bytes.data(), bytes.size());
  }

  /// The image that the script makes, in a block of exactly its size. Each step: kind, region, place (2
  /// bytes), value (8 bytes).
  Image damaged(Script script) {
    Image image = pristine_;
    size_t size = image.size();
    isForged_ = isResealed_ = false;
    for (; script.size() >= stepBytes; script = script.subspan(stepBytes)) {
      uint16_t place;
      uint64_t value;
      std::memcpy(&place, &script[2], sizeof place);
      std::memcpy(&value, &script[4], sizeof value);
      size_t const offset = (regions_[script[1] % std::size(regions_)] + place % 512U * 8) % pristine_.size();
      auto* const header = static_cast<Brine::Header*>(static_cast<void*>(image.data()));
      auto* const word = static_cast<uint64_t*>(static_cast<void*>(&image[offset]));
      isResealed_ |= script[0] % 8 >= 4;
      switch (script[0] % 8) {
        case 0: *word ^= uint64_t{1} << value % 64; break;
        case 1: *word = value; break;
        case 2: *word = edges_[value % std::size(edges_)]; break;
        case 3: size = std::min(size, offset + value % 16); break;
        // The rest is what an attacker would do, or a fault of the writer's: checks are made to fit.
        case 4: header->identityCheck = Brine::identityCheckOf(*header); break;
        case 5: header->geometry = seal(*header, Brine::geometryPlace, value); break;
        case 6: header->highWater = seal(*header, Brine::highWaterPlace, value); break;
        default: forgeRow(image, header->seed, static_cast<uint32_t>(value % 64)); break;
      }
    }
    return {image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size)};
  }

  /// Does what a reader can do. Raises `std::logic_error` where it is shown a row that was never written.
  void read(Image const& image) const {
    Brine::Table<TestRow> table;
    if (table.mountImage(image) != Brine::MountStatus::mounted) return;
    table.onChanged = [&](TestKey const& key) {
      attempt([&] {
        if (auto const row = table.find(key)) judge(*row);
      });
    };
    table.deliver();
    for (auto const column : {std::optional<uint32_t>(), std::optional<uint32_t>(1)}) {
      attempt([&] {
        auto cursor = column ? table.walk(*column) : table.walkAfter({0, 0});
        while (attempt([&] {
          TestRow const* const row = cursor.next();
          if (row != nullptr) judge(*row);
          return row == nullptr;
        })) {
        }
      });
    }
    for (uint64_t number = 0; number < 41; ++number) {
      attempt([&] {
        if (auto const row = table.find({number, static_cast<uint32_t>(number % 3)})) judge(*row);
      });
    }
    table.check();
    table.statistics();
  }

  /// Lets a writer repair it. Raises `std::logic_error` where that leaves damage, or a row that was never
  /// written.
  void repair(Image const& image) const {
    TestFolder const folder;
    std::ofstream(folder.path() + "/table.table", std::ios::binary)
        .write(static_cast<char const*>(static_cast<void const*>(image.data())),
               static_cast<std::streamsize>(image.size()));
    Brine::MountOptions options = folder.options(Brine::Mode::writer);
    options.repair = true;
    Brine::Table<TestRow> table;
    if (table.mount(options) != Brine::MountStatus::mounted) throw std::logic_error(table.mountDetail());
    auto const use = [&] {
      for (TestRow const& row : table.sorted()) judge(row);
      for (uint64_t number = 0; number < 60; ++number) {
        table.remove({number, 0});
        table.write({{number, 9}, number, number});
      }
      table.endTurn();
    };
    // Forged contents do no harm, but may keep a writer from its work.
    isResealed_ ? static_cast<void>(attempt(use)) : use();
    for (auto const& fault : table.check()) {
      if (!isResealed_) throw std::logic_error(fault.invariant + ": " + fault.detail);
    }
  }

 private:
  /// Runs it. False where it returned true; damage counts as false.
  template <class Function>
  static bool attempt(Function&& function) {
    try {
      if constexpr (std::is_void_v<decltype(function())>) {
        function();
      } else {
        return !function();
      }
    } catch (Brine::CorruptionError const&) {
    } catch (Brine::SpaceError const&) {
    }
    return true;
  }
  void judge(TestRow const& row) const {
    bool const isWritten = row.other < written_.size() && written_[row.other] == row;
    if (!isForged_ && !isWritten) throw std::logic_error("a row that was never written");
  }
  static uint64_t seal(Brine::Header const& header, uint64_t place, uint64_t value) {
    return Brine::sealWord(header.seed, place,
                           static_cast<uint32_t>(value % 3 == 0 ? value >> 32 : value >> 56));
  }
  void forgeRow(Image& image, uint64_t seed, uint32_t id) {
    isForged_ = true;
    Brine::Layout const layout(16, 16, 2, 4);
    unsigned const extent = layout.extentOf(id);
    auto* const slot = static_cast<uint64_t*>(static_cast<void*>(
        &image[layout.extentOffset(extent) + (id - layout.extentFirst(extent)) * layout.rowStride() * 8]));
    bool const isB = (slot[0] & Brine::versionCopyB) != 0;
    uint64_t const words[4] = {slot[2], slot[3], slot[isB ? 6 : 4], slot[isB ? 7 : 5]};
    unsigned const count = (slot[0] & Brine::versionLive) != 0 ? 4 : 0;
    uint64_t const check = Brine::rowCheck(seed, id, slot[0], words, count);
    slot[1] = isB ? (slot[1] & 0xFFFFFFFFU) | check << 32 : (slot[1] & ~uint64_t{0xFFFFFFFFU}) | check;
  }

  Image pristine_;
  std::vector<TestRow> written_;
  bool isForged_ = false;    ///< A row's check was made to fit.
  bool isResealed_ = false;  ///< Any check was.
  // Header, its second half, ring, then rows, column (low and high bytes) and both indexes of the three
  // extents, a page each.
  static constexpr size_t regions_[] = {0,     128,   4096,  8192,  12288, 16384, 20480, 24576, 28672,
                                        32768, 36864, 40960, 45056, 49152, 53248, 57344, 61440, 65536};
  static constexpr uint64_t edges_[] = {0,  1, ~uint64_t{0}, 0xFFFFFFFFU, 0x80000000U, uint64_t{1} << 63,
                                        64, 16};
};
