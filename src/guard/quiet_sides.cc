#include "guard/quiet_sides.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "common/descriptor.h"
#include "common/folder_listing.h"
#include "guard/host_view.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

bool AreTrustworthy(const Sight& sight) {
  const auto isTrustworthy = [](const auto& entry) {
    return IsTrustworthy(entry.second.stamp, entry.second.taken);
  };
  const auto isReadable = [](const auto& entry) { return entry.second.isReadable; };
  return IsTrustworthy(sight.disk.stamp, sight.disk.taken) &&
         std::all_of(sight.host.seen.begin(), sight.host.seen.end(), isTrustworthy) &&
         std::all_of(sight.host.items.begin(), sight.host.items.end(), isReadable);
}

}  // namespace

std::optional<QuietSides> QuietSides::Take(const Places& places, const Sight& sight) {
  if (!AreTrustworthy(sight)) return std::nullopt;
  QuietSides sides;
  sides.root = places.folder;
  sides.image = places.image;
  sides.imageStamp = sight.disk.stamp;
  sides.state = places.stateFolder / "state";
  sides.stateStamp = StampAt(sides.state);
  std::vector<std::string> pending{""};
  std::size_t seen = 0;
  while (!pending.empty()) {
    auto folder = List(sides.root, pending.back());
    pending.pop_back();
    if (!folder || !IsAsSeen(*folder, sight, seen)) return std::nullopt;
    for (const Entry& entry : folder->entries) {
      std::string path = Join(folder->path, entry.name);
      if (entry.isFolder && sight.host.items.contains(path)) pending.push_back(std::move(path));
    }
    sides.folders.push_back(*std::move(folder));
  }
  const bool isWhole = seen == sight.host.items.size() + sight.host.leftOut.size();
  return isWhole ? std::optional(std::move(sides)) : std::nullopt;
}

bool QuietSides::IsAsSeen(const Folder& folder, const Sight& sight, std::size_t& seen) {
  for (const Entry& entry : folder.entries) {
    const std::string path = Join(folder.path, entry.name);
    ++seen;
    if (sight.host.leftOut.contains(path)) continue;
    const auto item = sight.host.items.find(path);
    if (item == sight.host.items.end()) return false;
    if ((item->second.type == EntryType::kFolder) != entry.isFolder) return false;
    if (entry.isFolder) continue;
    const auto content = sight.host.seen.find(path);
    const auto itself = sight.host.entryStamps.find(path);
    if (content == sight.host.seen.end() || itself == sight.host.entryStamps.end()) return false;
    const bool isSame = entry.stamp == itself->second &&
                        entry.target.value_or(entry.stamp) == content->second.stamp;
    if (!isSame) return false;
  }
  return true;
}

std::optional<QuietSides::Folder> QuietSides::List(const fs::path& root, const std::string& path) {
  Descriptor opened;
  const std::string whole = path.empty() ? root.native() : root.native() + '/' + path;
  const IfLink links = path.empty() ? IfLink::kFollow : IfLink::kRefuse;
  FolderListing listing = ListFolder(whole, links, opened);
  if (!listing.opened || listing.error) return std::nullopt;
  Folder folder{.path = path, .entries = {}};
  folder.entries.reserve(listing.entries.size());
  for (ListedEntry& listed : listing.entries) {
    Entry entry{.name = std::move(listed.name)};
    struct ::stat status;
    if (::fstatat(opened.Get(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return std::nullopt;
    }
    entry.isFolder = S_ISDIR(status.st_mode);
    entry.stamp = StampOf(status);
    const bool isLink = S_ISLNK(status.st_mode);
    if (isLink && ::fstatat(opened.Get(), entry.name.c_str(), &status, 0) == 0) {
      entry.target = StampOf(status);
    }
    folder.entries.push_back(std::move(entry));
  }
  return folder;
}

bool QuietSides::AreStill() const {
  if (StampAt(image) != imageStamp || StampAt(state) != stateStamp) return false;
  const auto isSame = [](const Entry& before, const Entry& now) {
    if (before.name != now.name || before.isFolder != now.isFolder) return false;
    if (before.isFolder) return before.stamp.identity == now.stamp.identity;
    return before.stamp == now.stamp && before.target == now.target;
  };
  return std::all_of(folders.begin(), folders.end(), [&](const Folder& before) {
    const auto now = List(root, before.path);
    return now && std::equal(before.entries.begin(), before.entries.end(), now->entries.begin(),
                             now->entries.end(), isSame);
  });
}

}  // namespace quorbix::virtdisk::internal::guard
