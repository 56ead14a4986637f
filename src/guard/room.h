#ifndef QUORBIX_VIRTDISK_GUARD_ROOM_H_
#define QUORBIX_VIRTDISK_GUARD_ROOM_H_

#include <filesystem>

#include "guard/facts.h"
#include "guard/places.h"
#include "guard/sight.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

// Whether files may be made in the folder, or it may itself be made, as far as permissions go.
bool MayWriteInto(const std::filesystem::path& folder);

// Whether a state can be written there, as far as permissions go.
bool MayRemember(const std::filesystem::path& stateFolder);

// What a plan needs of the host: the permissions for all that it changes, and the room. The sight
// has its plan, and the trash has been measured unless that is empty and nothing has to be mended.
PlanFacts LookForRoom(const Places& places, const GuardedSyncOptions& options, const Sight& sight);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_ROOM_H_
