#ifndef QUORBIX_VIRTDISK_TESTS_GUARD_LOSSES_H_
#define QUORBIX_VIRTDISK_TESTS_GUARD_LOSSES_H_

#include <string>

#include "guard/guarded_pair.h"
#include "support/clock_ahead.h"
#include "sync/sync_pass.h"

namespace quorbix::virtdisk::internal::guard {

// What people have lost with the plain synchroniser, each in two parts: that it does lose it, so
// that the list stays true, and that the guarded one does not, and what it says.
class Losses : public GuardedPair {
 protected:
  ~Losses() override { test::secondsAhead = 0; }

  void PlainPass() { RunSyncPass(Image(), Host(), plainState); }
  // What was agreed on is forgotten.
  void RestartPlain() { plainState = SyncState(); }

  // A folder with a few files, and its disk.
  void BuildUsual() {
    folder.File("host/A.TXT", "a").File("host/B.TXT", "b").File("host/SUB/C.TXT", "c");
    BuildImage();
  }

  static std::string TextOf(const GuardedReport& report, GuardedHazard hazard) {
    for (const GuardedHazardReport& found : report.hazards) {
      if (found.hazard == hazard) return found.text;
    }
    return "(no such hazard)";
  }

  SyncState plainState;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_TESTS_GUARD_LOSSES_H_
