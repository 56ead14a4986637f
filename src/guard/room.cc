#include "guard/room.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "guard/host_view.h"
#include "guard/rights.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

std::optional<std::uint64_t> FreeBytes(const fs::path& folder) {
  struct ::statvfs status;
  if (::statvfs(folder.c_str(), &status) != 0) return std::nullopt;
  return std::uint64_t{status.f_bavail} * status.f_frsize;
}

void Add(std::uint64_t bytes, std::optional<std::uint64_t>& free) {
  if (free) *free += bytes;
}

bool IsOnSameFileSystem(const fs::path& one, const fs::path& other) {
  const auto a = StampAt(one);
  const auto b = StampAt(other);
  return a && b && a->identity.device == b->identity.device;
}

// The folder, or the nearest one above it that exists.
fs::path Existing(fs::path folder) {
  while (!StampAt(folder) && folder.has_relative_path()) folder = folder.parent_path();
  return folder;
}

std::vector<std::string> UnwritableFolders(const Places& places, const Sight& sight) {
  if (sight.facts.onHost.state == FolderFacts::State::kMissing) return {};
  std::set<std::string> folders;
  std::set<std::string> unwritable;
  const auto add = [&](const std::string& path) {
    const std::string folder = ParentOf(path);
    if (folder.empty() || sight.seen.host.contains(folder)) folders.insert(folder);
  };
  const auto takeAway = [&](const std::string& path) {
    add(path);
    const std::string whole = places.folder / path;
    if (StampAt(whole) && !MayTakeAway(AT_FDCWD, whole)) unwritable.insert(ParentOf(path));
  };
  const Plan& plan = sight.plan;
  for (const HostWrite& write : plan.hostWrites) {
    if (write.replaces) {
      takeAway(write.host);
    } else {
      add(write.host);
    }
  }
  std::for_each(plan.hostFolders.begin(), plan.hostFolders.end(), add);
  std::for_each(plan.hostDeletions.begin(), plan.hostDeletions.end(), takeAway);
  std::for_each(plan.hostRemovals.begin(), plan.hostRemovals.end(), takeAway);
  for (const std::string& folder : folders) {
    if (!MayChange(places.folder / folder)) unwritable.insert(folder);
  }
  return {unwritable.begin(), unwritable.end()};
}

// What a pass that was cut off has left of its new image is removed before another is made.
std::uint64_t BytesOfLeftover(const fs::path& newImages, const Sight& sight) {
  struct ::stat status;
  const bool isThere = sight.pending && !sight.pending->wholeImage.empty() &&
                       ::lstat((newImages / sight.pending->wholeImage).c_str(), &status) == 0;
  return isThere ? RoomOf(status) : 0;
}

}  // namespace

bool MayWriteInto(const fs::path& folder) { return MayChange(Existing(folder)); }

PlanFacts LookForRoom(const Places& places, const GuardedSyncOptions& options, const Sight& sight) {
  PlanFacts facts;
  if (sight.plan.IsEmpty()) return facts;
  facts.unwritableFolders = UnwritableFolders(places, sight);
  const fs::path beside = places.image.parent_path();
  const fs::path newImages = options.inPlace ? places.stateFolder : beside;
  const fs::path state = Existing(places.stateFolder);
  facts.isImageWritable = MayWrite(places.image) && (options.inPlace || MayChange(beside));
  facts.imageCopies = options.inPlace ? 2 : 1;
  facts.freeForFolder = FreeBytes(places.folder);
  facts.freeForImage = FreeBytes(newImages);
  facts.freeForTrash = FreeBytes(state);
  facts.isSameFileSystem = IsOnSameFileSystem(places.folder, newImages);
  facts.isTrashBesideFolder = IsOnSameFileSystem(places.folder, state);
  facts.isTrashBesideImage = IsOnSameFileSystem(newImages, state);
  facts.areFilesCopied = !facts.isTrashBesideFolder;
  facts.isImageCopied = !options.inPlace && !facts.isTrashBesideImage;
  const std::uint64_t leftover = BytesOfLeftover(newImages, sight);
  Add(leftover, facts.freeForImage);
  if (facts.isSameFileSystem) Add(leftover, facts.freeForFolder);
  // What is beyond the trash's bound goes before anything is written.
  facts.trashBytes = sight.trash->held;
  Add(sight.trash->spare, facts.freeForTrash);
  if (facts.isTrashBesideFolder) Add(sight.trash->spare, facts.freeForFolder);
  if (facts.isTrashBesideImage) Add(sight.trash->spare, facts.freeForImage);
  return facts;
}

}  // namespace quorbix::virtdisk::internal::guard
