#ifndef QUORBIX_VIRTDISK_GUARD_SIGHT_H_
#define QUORBIX_VIRTDISK_GUARD_SIGHT_H_

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "guard/disk_view.h"
#include "guard/facts.h"
#include "guard/hazards.h"
#include "guard/host_view.h"
#include "guard/model.h"
#include "guard/places.h"
#include "guard/planning.h"
#include "guard/state.h"
#include "guard/state_file.h"
#include "guard/trash.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

// What was remembered, as it was found.
struct KnownState {
  StateLoad load = StateLoad::kNone;
  State state{};
  std::string error{};      // with kDamaged
  std::string lockError{};  // why the state's folder could not be locked; empty: it could
};

// How far a pass that was cut off had come with its image.
enum class CutOff {
  kNowhere,   // there was none, or the old image is still the image
  kReplaced,  // the new image is the image
  kTorn,      // the new image was being written over the old one
};

// All that is seen before anything is touched, and what follows from it.
struct Sight {
  enum class Result { kComplete, kNotNow, kStopped };
  Result result = Result::kComplete;
  std::string message{};  // but with kComplete

  CutOff cutOff = CutOff::kNowhere;
  std::optional<Pending> pending{};  // of the pass that was cut off
  bool hasToMend = false;            // that pass has left something to be ended or taken away
  State state{};                     // without it; empty when it is not to be used
  bool isFirstMeeting = false;
  Facts facts{};
  HostView host{};
  DiskView disk{};
  bool wasDiskRead = false;  // otherwise it is as remembered
  Observation seen{};
  Hazards hazards{};
  Plan plan{};
  std::optional<TrashSize> trash{};  // where there is something to do
  std::vector<GuardedNote> notes{};
};

// Looks at both sides and plans. A hazard that can be accepted is planned for as if it were.
// `kept`, unless null, gets what it has read of both sides.
Sight Look(const Places& places, const GuardedSyncOptions& options, const KnownState& remembered,
           WorkMonitor& monitor, KeptContents* kept = nullptr);

// Of the trash, while a pass has to be ended that was cut off, if one has.
TrashBound BoundOf(const GuardedSyncOptions& options, const std::optional<Pending>& cutOff);

// Where a pass that was cut off had the new image, or the old one after both had changed names.
std::filesystem::path WholeImageOf(const Places& places, const Pending& pending);

// The entries of the disk, if memory is all that it holds.
std::map<std::string, DiskItem> DiskAsRemembered(const Memory& memory);

// Whether the disk holds what memory says, no more and no less.
bool IsAsRemembered(const std::map<std::string, DiskItem>& disk, const Memory& memory);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_SIGHT_H_
