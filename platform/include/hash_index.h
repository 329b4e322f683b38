// Numbers found by the hash of what they stand for, in a list of the caller's. Eight bytes a slot:
// the standard map takes fifty for each entry, and a look into it meets memory that no cache has.
#ifndef PLATFORM_HASH_INDEX_H
#define PLATFORM_HASH_INDEX_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace korvmailserver {

class HashIndex {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;

  static uint32_t HashOf(std::string_view text) {
    return static_cast<uint32_t>(std::hash<std::string_view>()(text));
  }
  // Ids come in runs and at even distances; either would crowd a part of the slots.
  static uint32_t HashOf(unsigned int id) {
    id = (id ^ id >> 16) * 0x85EBCA6BU;
    id = (id ^ id >> 13) * 0xC2B2AE35U;
    return id ^ id >> 16;
  }

  // Makes room for so many numbers in all.
  void Reserve(size_t numbers) {
    size_t size = slots_.size();
    while (size < 2 * numbers) {
      size *= 2;
    }
    if (size == slots_.size()) {
      return;
    }
    std::vector<Slot> old(size);
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.number != kNone) {
        slots_[PlaceOf(slot.hash, [](uint32_t /*number*/) { return false; })] = slot;
      }
    }
  }
  // The number with this hash of which `is_it` is true; kNone.
  template <typename IsIt>
  uint32_t Find(uint32_t hash, const IsIt& is_it) const {
    return slots_[PlaceOf(hash, is_it)].number;
  }
  // The same. Where there is none, `number` is it from now on.
  template <typename IsIt>
  uint32_t FindOrAdd(uint32_t hash, uint32_t number, const IsIt& is_it) {
    Reserve(used_ + 1);
    Slot& slot = slots_[PlaceOf(hash, is_it)];
    const uint32_t found = slot.number;
    if (found == kNone) {
      slot = {hash, number};
      ++used_;
    }
    return found;
  }
  // Adds one that is known to be missing.
  void Add(uint32_t hash, uint32_t number) {
    FindOrAdd(hash, number, [](uint32_t /*number*/) { return false; });
  }

 private:
  struct Slot {
    uint32_t hash = 0;
    uint32_t number = kNone;
  };
  // Of the number, or of the free slot where it would stand.
  template <typename IsIt>
  size_t PlaceOf(uint32_t hash, const IsIt& is_it) const {
    const size_t mask = slots_.size() - 1;
    size_t at = hash & mask;
    while (slots_[at].number != kNone && !(slots_[at].hash == hash && is_it(slots_[at].number))) {
      at = (at + 1) & mask;
    }
    return at;
  }

  std::vector<Slot> slots_ = std::vector<Slot>(16);
  size_t used_ = 0;
};

}  // namespace korvmailserver

#endif  // PLATFORM_HASH_INDEX_H
