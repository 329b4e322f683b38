#include "platform/account/file_scan.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <unordered_map>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "platform/account/account_field.h"
#include "platform/account/account_files.h"
#include "platform/account/name_hash.h"
#include "platform/include/text.h"
#include "platform/system/fold_case.h"

namespace korvmailserver::account {

namespace {

constexpr size_t kChunk = 64;           // bytes that one mask describes
constexpr size_t kBlockBytes = 131072;  // stays in the processor's cache
constexpr size_t kShortestLine = 7;     // "a:x:0:\n"
constexpr size_t kMaxNameBytes = 255;

// Bits of the bytes of one chunk.
struct Masks {
  uint64_t separators = 0;  // ":" and line ends
  uint64_t odd = 0;         // control characters but line ends, and all beyond ASCII
};

#ifdef __SSE2__
Masks MasksOf(const char* chunk) {
  Masks masks;
  for (unsigned i = 0; i < kChunk / 16; i++) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(chunk) + i);
    const __m128i ends = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n'));
    const __m128i colons = _mm_cmpeq_epi8(bytes, _mm_set1_epi8(':'));
    // Bytes beyond ASCII are negative here.
    const __m128i low = _mm_andnot_si128(ends, _mm_cmplt_epi8(bytes, _mm_set1_epi8(' ')));
    const __m128i odd = _mm_or_si128(low, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(0x7F)));
    const auto bits = [](__m128i mask) { return static_cast<uint64_t>(_mm_movemask_epi8(mask)); };
    masks.separators |= bits(_mm_or_si128(ends, colons)) << (16 * i);
    masks.odd |= bits(odd) << (16 * i);
  }
  return masks;
}
#else
Masks MasksOf(const char* chunk) {
  Masks masks;
  for (size_t i = 0; i < kChunk; i++) {
    const char c = chunk[i];
    const bool odd = c != '\n' && (IsControlCharacter(c) || static_cast<unsigned char>(c) >= 0x80);
    masks.separators |= static_cast<uint64_t>(c == ':' || c == '\n') << i;
    masks.odd |= static_cast<uint64_t>(odd) << i;
  }
  return masks;
}
#endif

// A set of bits by hash; as many as fit well for `count` values.
class BitSet {
 public:
  BitSet(size_t count, size_t bits_per_value) {
    size_t words = 1;
    while (words * kBits < count * bits_per_value) {
      words *= 2;
    }
    words_.resize(words);
  }
  bool Has(uint64_t hash) const { return (Word(hash) >> (hash % kBits) & 1) != 0; }
  void Set(uint64_t hash) {
    words_[hash / kBits & (words_.size() - 1)] |= uint64_t{1} << (hash % kBits);
  }

 private:
  static constexpr size_t kBits = 64;
  uint64_t Word(uint64_t hash) const { return words_[hash / kBits & (words_.size() - 1)]; }
  std::vector<uint64_t> words_;
};

// Whether two hashes are equal. A set of all would be ten times as large and slow: bits tell which
// few may have a twin, and only these are compared.
bool HasTwins(const std::vector<uint64_t>& hashes) {
  BitSet seen(hashes.size(), 16);
  std::vector<uint64_t> suspects;
  for (const uint64_t hash : hashes) {
    if (seen.Has(hash)) {
      suspects.push_back(hash);
    }
    seen.Set(hash);
  }
  std::sort(suspects.begin(), suspects.end());
  BitSet suspected(suspects.size(), 64);
  for (const uint64_t hash : suspects) {
    suspected.Set(hash >> 32);
  }
  std::vector<uint64_t> found;
  for (const uint64_t hash : hashes) {
    if (suspected.Has(hash >> 32) && std::binary_search(suspects.begin(), suspects.end(), hash)) {
      found.push_back(hash);
    }
  }
  std::sort(found.begin(), found.end());
  return std::adjacent_find(found.begin(), found.end()) != found.end();
}

bool HasEqual(const std::vector<unsigned int>& ids) {
  const size_t highest = ids.empty() ? 0 : *std::max_element(ids.begin(), ids.end());
  const size_t limit = std::min(highest + 1, 64 * (ids.size() + 1));
  std::vector<bool> seen(limit);
  std::vector<unsigned int> high;
  for (const unsigned int id : ids) {
    if (id >= limit) {
      high.push_back(id);
    } else if (seen[id]) {
      return true;
    } else {
      seen[id] = true;
    }
  }
  std::sort(high.begin(), high.end());
  return std::adjacent_find(high.begin(), high.end()) != high.end();
}

// As ParseId, for a number that ends at a colon.
inline bool ReadId(const char* begin, const char* end, unsigned int& id) {
  if (end - begin > 9) {
    return ParseId(std::string_view(begin, static_cast<size_t>(end - begin)), id);
  }
  unsigned int value = 0;
  for (const char* at = begin; at != end; at++) {
    const unsigned int digit = static_cast<unsigned char>(*at) - static_cast<unsigned int>('0');
    if (digit > 9) {
      return false;
    }
    value = value * 10 + digit;
  }
  id = value;
  return begin != end;
}

bool HasLongPart(std::string_view list) {
  while (list.size() > kMaxNameBytes) {
    const size_t comma = list.find(',');
    if (std::min(comma, list.size()) > kMaxNameBytes) {
      return true;
    }
    list.remove_prefix(comma + 1);
  }
  return false;
}

}  // namespace

// A part of the file that begins with a line. Its range are the places of ":" and of line ends.
class FileScan::Block {
 public:
  std::vector<char> bytes = std::vector<char>(kBlockBytes + kChunk);
  size_t used = 0;
  size_t offset = 0;          // of the first byte in the file
  std::vector<uint32_t> odd;  // where control characters and bytes beyond ASCII are

  size_t capacity() const { return bytes.size() - kChunk; }
  std::string_view Text(size_t begin, size_t end) const {
    return {bytes.data() + begin, end - begin};
  }

  void FindSeparators() {
    std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(used), kChunk, ' ');
    separators_.resize(capacity());  // room for every byte; a second time it does nothing
    uint32_t* next = separators_.data();
    odd.clear();
    for (size_t at = 0; at < used; at += kChunk) {
      Masks masks = MasksOf(bytes.data() + at);
      for (; masks.separators != 0; masks.separators &= masks.separators - 1) {
        *next++ = static_cast<uint32_t>(at) + BitNumber(masks.separators);
      }
      for (; masks.odd != 0; masks.odd &= masks.odd - 1) {
        odd.push_back(static_cast<uint32_t>(at) + BitNumber(masks.odd));
      }
    }
    end_ = next;
  }
  const uint32_t* begin() const { return separators_.data(); }
  const uint32_t* end() const { return end_; }

  // Keeps what stands behind `end`, in front.
  void Drop(size_t end) {
    std::memmove(bytes.data(), bytes.data() + end, used - end);
    used -= end;
    offset += end;
    if (used > capacity() / 2) {
      bytes.resize(2 * capacity() + kChunk);
    }
  }

 private:
  static uint32_t BitNumber(uint64_t mask) { return static_cast<uint32_t>(__builtin_ctzll(mask)); }

  std::vector<uint32_t> separators_;
  const uint32_t* end_ = nullptr;
};

bool FileScan::Read(const std::string& path) {
  struct stat info = {};
  stamp_ = FileStamp::Of(path);
  return file_.Open(path, info) && stamp_.IsOf(info) && ReadBlocks(info.st_size) &&
         !HasEqual(ids_) && !HasTwins(hashes_);
}

bool FileScan::ReadBlocks(off_t size) {
  if (size >= static_cast<off_t>(UINT32_MAX) / 2) {
    return false;
  }
  const size_t most = static_cast<size_t>(size) / kShortestLine + 1;
  hashes_.reserve(most);  // what is not used costs no memory
  ids_.reserve(most);
  gids_.reserve(kind_ == FileKind::kPasswd ? most : 0);
  offsets_.reserve(most);
  Block block;
  while (true) {
    const ssize_t count = file_.Read(block.bytes.data() + block.used, block.capacity() - block.used,
                                     block.offset + block.used);
    if (count <= 0) {
      return count == 0 && block.used == 0;  // a last line without its end is not in order
    }
    block.used += static_cast<size_t>(count);
    if (block.offset + block.used > UINT32_MAX || !TakeLines(block)) {
      return false;
    }
  }
}

bool FileScan::TakeLines(Block& block) {
  block.FindSeparators();
  auto odd = block.odd.begin();
  size_t begin = 0;
  const uint32_t* colons = block.begin();
  for (const uint32_t* at = colons; at != block.end(); at++) {
    if (block.bytes[*at] == ':') {
      continue;
    }
    const bool is_odd = odd != block.odd.end() && *odd < *at;
    const auto count = static_cast<size_t>(at - colons);
    if ((is_odd || !TakeLine(block, begin, *at, colons, count)) &&
        !TakeOddLine(block, begin, *at)) {
      return false;
    }
    begin = *at + 1;
    colons = at + 1;
    while (odd != block.odd.end() && *odd < begin) {
      ++odd;
    }
  }
  block.Drop(begin);
  return true;
}

inline void FileScan::Add(std::string_view name, unsigned int id, unsigned int gid, size_t offset) {
  hashes_.push_back(HashOf(name));
  ids_.push_back(id);
  if (kind_ == FileKind::kPasswd) {
    gids_.push_back(gid);
  }
  if (!IsSurelyFolded(name)) {
    unfolded_.push_back(static_cast<uint32_t>(offsets_.size()));
  }
  offsets_.push_back(static_cast<uint32_t>(offset));
}

// The usual line, without a look at each byte. False when it needs one.
bool FileScan::TakeLine(const Block& block, size_t begin, size_t end, const uint32_t* colons,
                        size_t count) {
  const bool is_user = kind_ == FileKind::kPasswd;
  if (count != (is_user ? 6 : 3)) {
    return false;
  }
  const char* bytes = block.bytes.data();
  const std::string_view name = block.Text(begin, colons[0]);
  unsigned int id = 0;
  unsigned int gid = 0;
  const bool taken = !name.empty() && name.size() <= kMaxNameBytes && name[0] != '#' &&
                     name[0] != '+' && name[0] != '-' &&
                     ReadId(bytes + colons[1] + 1, bytes + colons[2], id) &&
                     (is_user ? ReadId(bytes + colons[2] + 1, bytes + colons[3], gid)
                              : !HasLongPart(block.Text(colons[2] + 1, end)));
  if (taken) {
    Add(name, id, gid, block.offset + begin);
  }
  return taken;
}

bool FileScan::TakeOddLine(const Block& block, size_t begin, size_t end) {
  const std::string_view line = WithoutCarriageReturn(block.Text(begin, end));
  if (!HoldsEntry(line)) {
    return true;
  }
  UserRow user;
  GroupRow group;
  bool all_members = true;
  const bool is_user = kind_ == FileKind::kPasswd;
  if (HasControlCharacter(line) ||
      !(is_user ? ReadUserLine(line, {}, user) : ReadGroupLine(line, {}, group, all_members)) ||
      !all_members) {
    return false;
  }
  Add(is_user ? user.name : group.name, is_user ? user.uid : group.gid, user.gid,
      block.offset + begin);
  return true;
}

std::vector<size_t> FileScan::FindNames(const std::vector<std::string>& names) const {
  std::unordered_map<uint64_t, size_t> entries;
  BitSet wanted(names.size(), 256);
  for (const std::string& name : names) {
    entries.emplace(HashOf(name), kNone);
    wanted.Set(HashOf(name));
  }
  for (size_t entry = 0; entry < hashes_.size(); entry++) {
    if (wanted.Has(hashes_[entry])) {
      const auto found = entries.find(hashes_[entry]);
      if (found != entries.end()) {
        found->second = entry;
      }
    }
  }
  std::vector<size_t> found;
  found.reserve(names.size());
  for (const std::string& name : names) {
    found.push_back(entries.at(HashOf(name)));
  }
  return found;
}

size_t FileScan::FindId(unsigned int id) const {
  const auto found = std::find(ids_.begin(), ids_.end(), id);
  return found == ids_.end() ? kNone : static_cast<size_t>(found - ids_.begin());
}

bool FileScan::Fits(size_t entry, const std::string& name, unsigned int id) const {
  return hashes_[entry] == HashOf(name) && ids_[entry] == id;
}

std::vector<size_t> FileScan::OfGroup(unsigned int gid) const {
  std::vector<size_t> users;
  for (size_t entry = 0; entry < gids_.size(); entry++) {
    if (gids_[entry] == gid) {
      users.push_back(entry);
    }
  }
  return users;
}

bool FileScan::ReadLine(size_t entry, std::string_view& line) const {
  return file_.ReadLine(offsets_[entry], line);
}

bool FileScan::HasIdWithin(unsigned int lowest, unsigned int highest) const {
  return std::any_of(ids_.begin(), ids_.end(),
                     [=](unsigned int id) { return id >= lowest && id <= highest; });
}

}  // namespace korvmailserver::account
