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
#include "guard/state_file.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

void Add(std::uint64_t bytes, std::optional<std::uint64_t>& free) {
  if (free) *free += bytes;
}

// The folder, or the nearest one above it that exists.
fs::path Existing(fs::path folder) {
  while (!StampAt(folder) && folder.has_relative_path()) folder = folder.parent_path();
  return folder;
}

// Of a folder, or of where it is to be made.
Room RoomAt(const fs::path& folder) {
  const fs::path there = Existing(folder);
  Room room;
  if (const auto status = StampAt(there)) room.device = status->identity.device;
  struct ::statvfs status;
  if (::statvfs(there.c_str(), &status) == 0) {
    room.free = std::uint64_t{status.f_bavail} * status.f_frsize;
  }
  return room;
}

std::uint64_t HolesOf(const fs::path& image) {
  struct ::stat status;
  if (::stat(image.c_str(), &status) != 0) return 0;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  return size - std::min(size, RoomOf(status));
}

std::vector<std::string> WhatIsUnwritable(const Places& places, const Sight& sight) {
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
    if (!StampAt(whole) || MayTakeAway(AT_FDCWD, whole)) return;
    unwritable.insert(MayChange(places.folder / ParentOf(path)) ? path : ParentOf(path));
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

std::uint64_t BytesOfLeftover(const fs::path& newImages, const Sight& sight) {
  struct ::stat status;
  const bool isThere = sight.pending && !sight.pending->wholeImage.empty() &&
                       ::lstat((newImages / sight.pending->wholeImage).c_str(), &status) == 0;
  return isThere ? RoomOf(status) : 0;
}

}  // namespace

bool MayWriteInto(const fs::path& folder) { return MayChange(Existing(folder)); }

bool MayRemember(const fs::path& stateFolder) {
  const fs::path state = StateFileIn(stateFolder);
  return MayWriteInto(stateFolder) && (!StampAt(state) || MayTakeAway(AT_FDCWD, state.native()));
}

PlanFacts LookForRoom(const Places& places, const GuardedSyncOptions& options, const Sight& sight) {
  PlanFacts facts;
  facts.isInPlace = options.inPlace;
  facts.isTorn = sight.cutOff == CutOff::kTorn;
  if (sight.plan.IsEmpty() && !facts.isTorn) return facts;
  facts.unwritable = WhatIsUnwritable(places, sight);
  const fs::path beside = places.image.parent_path();
  const fs::path newImages = options.inPlace ? places.stateFolder : beside;
  facts.isImageWritable =
      MayWrite(places.image) && (options.inPlace || MayTakeAway(AT_FDCWD, places.image.native()));
  facts.holes = HolesOf(places.image);
  facts.trashBytes = sight.trash->held;
  facts.folder = RoomAt(places.folder);
  facts.image = RoomAt(beside);
  facts.newImage = RoomAt(newImages);
  facts.trash = RoomAt(places.stateFolder);
  // What a pass that was cut off has left of its new image is removed before another is made, and
  // what is beyond the trash's bound before anything is written.
  const std::uint64_t leftover = BytesOfLeftover(newImages, sight);
  for (Room* room : {&facts.folder, &facts.image, &facts.newImage, &facts.trash}) {
    if (room->device == facts.newImage.device) Add(leftover, room->free);
    if (room->device == facts.trash.device) Add(sight.trash->spare, room->free);
  }
  return facts;
}

}  // namespace quorbix::virtdisk::internal::guard
