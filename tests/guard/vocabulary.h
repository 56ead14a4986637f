#ifndef QUORBIX_VIRTDISK_TESTS_GUARD_VOCABULARY_H_
#define QUORBIX_VIRTDISK_TESTS_GUARD_VOCABULARY_H_

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "guard/disk_names.h"
#include "guard/model.h"
#include "guard/pairing.h"
#include "guard/planning.h"
#include "sync/hash_bytes.h"

// Small words for both sides of a synchronisation: a path and a letter for what a file says. A path
// that ends in "/" is a folder; the letter '?' stands for what cannot be read.

namespace quorbix::virtdisk::internal::guard {

using Entries = std::initializer_list<std::pair<std::string, char>>;

inline Content Says(char letter) { return {.hash = static_cast<std::uint64_t>(letter), .size = 1}; }

inline Content ContentOf(const std::string& text) {
  return {HashBytes(std::vector<std::uint8_t>(text.begin(), text.end())), text.size()};
}

inline bool TakeSlash(std::string& path) {
  const bool isFolder = path.ends_with('/');
  if (isFolder) path.pop_back();
  return isFolder;
}

inline HostItem HostFile(char letter) {
  return {.type = EntryType::kFile, .content = Says(letter), .isReadable = letter != '?'};
}

// Everything on the disk is dated: a machine has been there.
inline Observation Seen(Entries host, Entries disk) {
  Observation seen;
  for (auto [path, letter] : host) {
    const bool isFolder = TakeSlash(path);
    seen.host[path] = HostFile(letter);
    if (isFolder) seen.host[path] = {.type = EntryType::kFolder, .isReadable = letter != '?'};
  }
  for (auto [path, letter] : disk) {
    const bool isFolder = TakeSlash(path);
    DiskItem item{.path = path, .shortName = ShortNameOf(NameOf(path)), .isDated = true};
    item.type = isFolder ? EntryType::kFolder : EntryType::kFile;
    if (!isFolder) item.content = Says(letter);
    item.isReadable = letter != '?';
    seen.disk[DiskKey(path)] = item;
  }
  return seen;
}

struct Remembered {
  std::string host;
  std::string disk;
  char letter = '-';  // '-': the names alone
};

inline Memory Knows(std::initializer_list<Remembered> pairs) {
  Memory memory;
  for (Remembered pair : pairs) {
    const bool isFolder = TakeSlash(pair.host);
    TakeSlash(pair.disk);
    Pair known{pair.host, pair.disk, isFolder ? EntryType::kFolder : EntryType::kFile, {}};
    if (pair.letter != '-') known.agreed = isFolder ? Content{} : Says(pair.letter);
    memory.pairs.push_back(known);
  }
  return memory;
}

inline Pairing Paired(const Observation& seen, const Memory& memory = {},
                      const NameHints& hints = {}) {
  return PairEntries(WithUnseen(seen, memory), memory, hints);
}

inline Plan Planned(const Observation& seen, const Memory& memory = {},
                    const PlanRules& rules = {.when = "NOW"}) {
  const Observation whole = WithUnseen(seen, memory);
  return MakePlan(whole, memory, PairEntries(whole, memory, {}), rules);
}

// "host=DISK", one for each row, in order.
inline std::vector<std::string> PairsOf(const Pairing& pairing) {
  std::vector<std::string> pairs;
  for (const Row& row : pairing.rows) pairs.push_back(row.host + '=' + row.disk);
  return pairs;
}

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_TESTS_GUARD_VOCABULARY_H_
