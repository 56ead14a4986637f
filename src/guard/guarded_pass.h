#ifndef QUORBIX_VIRTDISK_GUARD_GUARDED_PASS_H_
#define QUORBIX_VIRTDISK_GUARD_GUARDED_PASS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "guard/folder_lock.h"
#include "guard/host_changes.h"
#include "guard/kept_contents.h"
#include "guard/sight.h"
#include "guard/state.h"
#include "guard/trash.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

// Carries out what was planned, in an order that loses nothing wherever it is cut off:
//
//   1. the state is saved with what the pass is about, as pending, and the new image's volume id
//   2. what the disk has is written to the folder; where that fails, it ends here
//   3. what the disk lacks goes from the folder to the trash
//   4. the new image is made and saved beside the old one, or in the state's folder, read back, and
//      put in its place; the old one goes to the trash
//   5. the state is saved
//
// Between 4 and 5 the volume id of the image tells that the pending state holds.
class GuardedPass {
 public:
  // The sight is whole, has a plan, and no hazard stands. What the look has `kept` goes as soon as
  // the new image is made; `lock` is taken of a folder that the pass makes. Everything has to
  // outlive this.
  GuardedPass(const Places& itsPlaces, const GuardedSyncOptions& itsOptions,
              const Sight& whatIsSeen, KeptContents& keptContents, FolderLock& lock,
              WorkMonitor& workMonitor);

  [[nodiscard]] Ending Run();

  // What to remember after a pass that ended well, and has been saved.
  const State& After() const { return after; }

  // Whether a step of the plan was carried out.
  bool IsDone(const GuardedStep& step) const;

 private:
  Ending CarryOut();
  Ending KeepDamagedState();
  Ending MendCutOff();
  Ending SavePending();
  State StateBegun() const;
  Ending ChangeHost();
  Ending MakeHostFolder();
  Ending ChangeImage();
  Ending Finish();
  void RememberSides(const Identity& folder);
  Ending RememberNewImage();
  void Doubt(const std::string& path);
  void KeepEarlierLooks();
  bool IsNews();
  Ending Save(const State& state);
  void TrimToBound() const;

  const Places& places;
  const GuardedSyncOptions& options;
  const Sight& sight;
  KeptContents& kept;
  FolderLock& folderLock;
  WorkMonitor& monitor;
  const std::string when;
  TrashRun trash;
  HostChanges host;
  std::map<std::uint64_t, TrashRequest> neverCome;  // of passes that were cut off
  std::optional<Pending> pending;                   // of this pass
  std::optional<Stamp> mended;  // of an image that was torn, now that it is whole
  std::int64_t imageTaken = 0;  // when either of them was not written yet
  bool isImageDone = false;
  State after;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_GUARDED_PASS_H_
