#include "guard/pairing.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "common/ascii.h"
#include "guard/code_page.h"
#include "guard/disk_names.h"
#include "guard/host_names.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

class Pairer {
 public:
  Pairer(const Observation& seen, const Memory& known, const NameHints& nameHints)
      : observation(seen), memory(known), hints(nameHints) {}

  Pairing Run() {
    UseAllNames();
    IgnoreWhatIsNoNews();
    TakeRemembered();
    for (const bool ofSameContent : {true, false}) {
      TakeNamesakes({.ofSameContent = ofSameContent, .ofOld = true});
      TakeNamesakes({.ofSameContent = ofSameContent, .ofOld = false});
    }
    NameNewOnHost();
    TakeNewOnDisk();
    return std::move(pairing);
  }

 private:
  void UseAllNames() {
    for (const auto& [path, item] : observation.host) hostNames.Use(path);
    for (const std::string& path : observation.hostLeftOut) hostNames.Use(path);
    for (const auto& [key, item] : observation.disk) diskNames.Use(ParentOf(key), item.shortName);
    for (const Pair& pair : memory.pairs) {
      hostNames.Use(pair.host);
      diskNames.UseListed(pair.disk);
    }
  }

  // A directory is news as soon as anything in it is: so what it holds comes first.
  void IgnoreWhatIsNoNews() {
    std::set<std::string> news;
    for (auto entry = observation.disk.rbegin(); entry != observation.disk.rend(); ++entry) {
      const auto& [key, item] = *entry;
      const auto known = memory.ignored.find(key);
      const bool same = known != memory.ignored.end() && known->second.type == item.type &&
                        (item.type == EntryType::kFolder ||
                         (item.isReadable && known->second.content == item.content));
      if (same && !news.contains(key)) {
        pairing.ignored.push_back(key);
        pairedOnDisk.emplace(key, kNoRow);
      } else {
        news.insert(ParentOf(key));
      }
    }
  }

  // Remembered pairs come first, whether they still exist on both sides or not: what is missing now
  // was deleted. One whose sides have become different things is a pair no more.
  void TakeRemembered() {
    for (const Pair& pair : SortedByHost(memory.pairs)) {
      const auto onHost = OnHost(pair.host);
      const auto onDisk = OnDisk(DiskKey(pair.disk));
      if (!onHost && !onDisk) continue;
      if (!IsInItsFolder(pair)) continue;
      // A folder whose place something has taken that takes no part: the disk's is new.
      if (pair.type == EntryType::kFolder && observation.hostLeftOut.contains(pair.host)) continue;
      if (onHost && onDisk && onHost->type != onDisk->type) {
        NoteClash(pair.host, DiskKey(pair.disk));
        continue;
      }
      const EntryType type = onHost ? onHost->type : onDisk->type;
      const bool isSame = type == pair.type;
      // Replaced by something else on one side and deleted on the other: that is new.
      if (!isSame && !(onHost && onDisk)) continue;
      Add({pair.host, onDisk ? onDisk->path : pair.disk, type, onHost, onDisk,
           isSame ? pair.agreed : std::nullopt});
    }
  }

  static std::vector<Pair> SortedByHost(std::vector<Pair> pairs) {
    std::sort(pairs.begin(), pairs.end(),
              [](const Pair& a, const Pair& b) { return a.host < b.host; });
    return pairs;
  }

  bool IsInItsFolder(const Pair& pair) const {
    const auto directory = DiskFolderFor(ParentOf(pair.host));
    return directory && DiskKey(*directory) == DiskKey(ParentOf(pair.disk));
  }

  // Round by round, the surest first: no path takes by a weaker sign what is another's by a
  // stronger.
  struct Wanted {
    bool ofSameContent = false;
    bool ofOld = false;  // under the name alone that it had before one of the sides was replaced
  };

  // New entries of the host that the disk has already. The map's order puts a folder before what it
  // holds.
  void TakeNamesakes(const Wanted& wanted) {
    if (observation.disk.empty()) return;
    for (const auto& [path, item] : observation.host) {
      if (pairedOnHost.contains(path)) continue;
      const auto directory = DiskFolderFor(ParentOf(path));
      if (directory) TakeNamesake(path, item, *directory, wanted);
    }
  }

  void NameNewOnHost() {
    for (const auto& [path, item] : observation.host) {
      if (pairedOnHost.contains(path)) continue;
      const auto directory = DiskFolderFor(ParentOf(path));
      if (!directory) {
        pairing.unnamed.push_back(path);
        continue;
      }
      const std::string name = diskNames.Take(*directory, NameOf(path));
      if (name.empty()) {
        pairing.unnamed.push_back(path);
      } else {
        Add({path, Join(*directory, name), item.type, item, std::nullopt, std::nullopt});
      }
    }
  }

  // The entry of the disk that is the same one as this, if it is free.
  void TakeNamesake(const std::string& path, const HostItem& item, const std::string& directory,
                    const Wanted& wanted) {
    for (const std::string& key : NamesakesOf(path, directory, wanted.ofOld)) {
      const auto onDisk = OnDisk(key);
      if (!onDisk || pairedOnDisk.contains(key) || DiskKey(directory) != ParentOf(key)) continue;
      if (onDisk->type != item.type) {
        NoteClash(path, key);
        continue;
      }
      if (wanted.ofSameContent && !IsSame(item, *onDisk)) continue;
      return Add({path, onDisk->path, item.type, item, onDisk, std::nullopt});
    }
  }

  // Keys, the likeliest first.
  std::vector<std::string> NamesakesOf(const std::string& path, const std::string& directory,
                                       bool ofOld) const {
    std::vector<std::string> keys;
    const std::string own = DiskKey(Join(directory, NameOf(path)));
    const auto add = [&](const NameHints::Names& names) {
      const auto found = names.find(path);
      if (found != names.end()) keys.push_back(DiskKey(found->second));
    };
    add(hints.remembered);
    if (ofOld) return keys;
    // No build gives such a name: a machine has, and the host has it from there.
    const bool isOfMachine = !IsOwnShortName(NameOf(path));
    if (isOfMachine) {
      keys.push_back(own);
      keys.push_back(DiskKey(Join(directory, ToCodePage437(NameOf(path)))));
    }
    add(hints.built);
    if (!isOfMachine) keys.push_back(own);
    return keys;
  }

  static bool IsSame(const HostItem& onHost, const DiskItem& onDisk) {
    if (onHost.type == EntryType::kFolder) return true;
    return onHost.isReadable && onDisk.isReadable && onHost.content == onDisk.content;
  }

  void TakeNewOnDisk() {
    std::unordered_map<std::string, std::string> before;  // host paths by disk key
    for (const auto& [host, disk] : hints.remembered) before.emplace(DiskKey(disk), host);
    for (const auto& [key, item] : observation.disk) {
      if (pairedOnDisk.contains(key)) continue;
      const std::string folder = HostFolderFor(ParentOf(key));
      const auto known = before.find(key);
      const bool isKnown = known != before.end() && ParentOf(known->second) == folder &&
                           !observation.host.contains(known->second);
      const std::string name = isKnown ? NameOf(known->second) : FromCodePage437(NameOf(item.path));
      Add({hostNames.Take(folder, VisibleName(name)), item.path, item.type, std::nullopt, item,
           std::nullopt});
    }
  }

  // A name that begins with "." would take no part on the host, and so seem deleted.
  static std::string VisibleName(const std::string& name) {
    return name.starts_with('.') ? '_' + name : name;
  }

  void Add(Row row) {
    const std::size_t number = pairing.rows.size();
    pairedOnHost.emplace(row.host, number);
    pairedOnDisk.emplace(DiskKey(row.disk), number);
    pairing.rows.push_back(std::move(row));
  }

  // The directory that stands for a folder of the host; nothing when none does.
  std::optional<std::string> DiskFolderFor(const std::string& folder) const {
    if (folder.empty()) return std::string();
    const auto row = pairedOnHost.find(folder);
    if (row == pairedOnHost.end() || pairing.rows[row->second].type != EntryType::kFolder) {
      return std::nullopt;
    }
    return pairing.rows[row->second].disk;
  }

  std::string HostFolderFor(const std::string& directoryKey) const {
    const auto row = pairedOnDisk.find(directoryKey);
    return row == pairedOnDisk.end() ? std::string() : pairing.rows[row->second].host;
  }

  void NoteClash(const std::string& path, const std::string& key) {
    const auto onHost = OnHost(path);
    const auto onDisk = OnDisk(key);
    if (!onHost || !onDisk || onHost->type == onDisk->type) return;
    if (!clashing.insert(path).second) return;
    pairing.clashes.push_back({path, onDisk->path, onHost->type == EntryType::kFile});
  }

  std::optional<HostItem> OnHost(const std::string& path) const {
    const auto found = observation.host.find(path);
    if (found == observation.host.end()) return std::nullopt;
    return found->second;
  }

  std::optional<DiskItem> OnDisk(const std::string& key) const {
    const auto found = observation.disk.find(key);
    if (found == observation.disk.end()) return std::nullopt;
    return found->second;
  }

  static constexpr std::size_t kNoRow = static_cast<std::size_t>(-1);

  const Observation& observation;
  const Memory& memory;
  const NameHints& hints;
  HostNames hostNames;
  DiskNames diskNames;
  std::unordered_map<std::string, std::size_t> pairedOnHost;  // rows by host path
  std::unordered_map<std::string, std::size_t> pairedOnDisk;  // rows by disk key; kNoRow: ignored
  std::set<std::string> clashing;                             // host paths
  Pairing pairing;
};

// Folder by folder, from the top: where a folder's name has changed, its pairs are looked for under
// the new one, and one that is not there either is gone from there.
class CaseFollower {
 public:
  CaseFollower(const std::map<std::string, HostItem>& hostItems, Memory& known)
      : host(hostItems), memory(known) {}

  void Run() {
    std::map<std::string, std::vector<Pair*>> byFolder;  // a folder before those in it
    std::set<std::string> known;
    for (Pair& pair : memory.pairs) {
      byFolder[ParentOf(pair.host)].push_back(&pair);
      known.insert(pair.host);
    }
    for (const auto& [path, item] : host) {
      if (!known.contains(path)) unknown[InOneCase(path)].push_back(path);
    }
    for (const auto& [folder, pairs] : byFolder) FollowIn(folder, pairs);
  }

 private:
  // The key of all names of one folder that differ in the case of their letters alone.
  static std::string InOneCase(const std::string& path) {
    return Join(ParentOf(path), ToAsciiLower(NameOf(path)));
  }

  void FollowIn(const std::string& folder, const std::vector<Pair*>& pairs) {
    const auto moved = followed.find(folder);
    const std::string& now = moved == followed.end() ? folder : moved->second;
    std::map<std::string, std::vector<Pair*>> gone;
    for (Pair* pair : pairs) {
      const std::string place = Join(now, NameOf(pair->host));
      if (host.contains(place)) {
        MoveTo(*pair, place);
      } else {
        gone[InOneCase(place)].push_back(pair);
      }
    }
    for (const auto& [key, missing] : gone) {
      for (Pair* pair : missing) {
        const std::string* other = missing.size() == 1 ? OtherCase(key, pair->type) : nullptr;
        MoveTo(*pair, other != nullptr ? *other : Join(now, NameOf(pair->host)));
      }
    }
  }

  // The one new entry that has such a name.
  const std::string* OtherCase(const std::string& key, EntryType type) const {
    const auto found = unknown.find(key);
    if (found == unknown.end()) return nullptr;
    const std::string* other = nullptr;
    for (const std::string& path : found->second) {
      if (taken.contains(path)) continue;
      if (other != nullptr) return nullptr;
      other = &path;
    }
    return other != nullptr && host.at(*other).type == type ? other : nullptr;
  }

  void MoveTo(Pair& pair, const std::string& path) {
    if (!taken.insert(path).second) return;
    if (pair.type == EntryType::kFolder && pair.host != path) followed.emplace(pair.host, path);
    pair.host = path;
  }

  const std::map<std::string, HostItem>& host;
  Memory& memory;
  std::unordered_map<std::string, std::vector<std::string>> unknown;  // paths by InOneCase
  std::map<std::string, std::string> followed;  // folders: the path that was to the one that is
  std::set<std::string> taken;                  // paths that pairs have by now
};

bool IsBelow(const std::string& path, const std::string& folder) {
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

}  // namespace

Observation WithUnseen(Observation observation, const Memory& memory) {
  std::set<std::string> known;
  for (const Pair& pair : memory.pairs) known.insert(pair.host);
  std::vector<std::string> unlisted;
  for (const auto& [path, item] : observation.host) {
    if (item.type == EntryType::kFolder && !item.isReadable) unlisted.push_back(path);
  }
  for (const std::string& folder : unlisted) {
    if (!known.contains(folder)) {
      observation.host.erase(folder);
      observation.hostLeftOut.insert(folder);
      continue;
    }
    for (const Pair& pair : memory.pairs) {
      if (!IsBelow(pair.host, folder)) continue;
      observation.host.try_emplace(pair.host,
                                   HostItem{.type = pair.type, .content = {}, .isReadable = false});
    }
  }
  return observation;
}

void FollowLetterCase(const std::map<std::string, HostItem>& host, Memory& memory) {
  const bool isAllThere = std::all_of(memory.pairs.begin(), memory.pairs.end(),
                                      [&](const Pair& pair) { return host.contains(pair.host); });
  if (!isAllThere) CaseFollower(host, memory).Run();
}

Pairing PairEntries(const Observation& observation, const Memory& memory, const NameHints& hints) {
  return Pairer(observation, memory, hints).Run();
}

}  // namespace quorbix::virtdisk::internal::guard
