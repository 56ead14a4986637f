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

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

bool MayChange(const fs::path& folder) {
  return ::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

bool MayWrite(const fs::path& file) {
  return ::faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) == 0;
}

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
  std::vector<std::string> unwritable;
  if (sight.facts.onHost.state == FolderFacts::State::kMissing) return unwritable;
  std::set<std::string> folders;
  const auto add = [&](const std::string& path) {
    const std::string folder = ParentOf(path);
    if (folder.empty() || sight.seen.host.contains(folder)) folders.insert(folder);
  };
  const Plan& plan = sight.plan;
  for (const HostWrite& write : plan.hostWrites) add(write.host);
  for (const auto* paths : {&plan.hostFolders, &plan.hostDeletions, &plan.hostRemovals}) {
    std::for_each(paths->begin(), paths->end(), add);
  }
  for (const std::string& folder : folders) {
    if (!MayChange(places.folder / folder)) unwritable.push_back(folder);
  }
  return unwritable;
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
