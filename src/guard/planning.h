#ifndef QUORBIX_VIRTDISK_GUARD_PLANNING_H_
#define QUORBIX_VIRTDISK_GUARD_PLANNING_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "guard/model.h"
#include "guard/pairing.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

using ConflictRule = GuardedSyncOptions::ConflictRule;

struct PlanRules {
  ConflictRule onConflict = ConflictRule::kKeepBoth;  // kStop plans as this one does
  bool isFirstMeeting = false;
  bool mendsDisk = false;  // which is damaged: a new image, whether anything has changed or not
  std::string when{};      // for the names of kept versions: "2026-11-21 17.20.05"
};

// A file of the disk that is to be written to the host.
struct HostWrite {
  std::string host{};
  std::string disk{};  // where its content is
  Content content{};
  bool replaces = false;  // a file of the host that is there
};

// One entry of the image that is to be made.
struct TreeEntry {
  std::string disk{};
  std::string host{};  // where its content is by then, but for kFromOldImage
  EntryType type = EntryType::kFile;
  Content content{};
  bool isFromOldImage = false;  // the host's file cannot be read
};

struct Plan {
  std::vector<std::string> hostFolders{};  // to make; a folder before what it holds
  std::vector<HostWrite> hostWrites{};
  std::vector<std::string> hostDeletions{};  // files
  std::vector<std::string> hostRemovals{};   // folders; what a folder holds before it
  bool needsImage = false;
  std::vector<TreeEntry> tree{};  // the whole volume, a directory before what it holds
  Memory after{};                 // what both sides have agreed on when all of it is done
  std::vector<GuardedStep> steps{};
  std::vector<std::string> conflicts{};   // host paths
  std::vector<std::string> lostOnDisk{};  // disk paths of files that cannot be read there, and that
                                          // the host does not have
  std::vector<std::string> keptFolders{};  // of the host: removed on the disk, and not empty here
  std::size_t deletedOnHost = 0;           // files
  std::size_t deletedOnDisk = 0;

  bool IsEmpty() const { return steps.empty() && !needsImage; }
};

// Decides what brings both sides in step.
Plan MakePlan(const Observation& observation, const Memory& memory, const Pairing& pairing,
              const PlanRules& rules);

// A link of the folder to a file in it, or to where nothing is yet.
struct FileLink {
  std::string next{};    // what it names, which may be another link
  std::string end{};     // the file
  bool isLoose = false;  // there is none; both say what it names
};
using FileLinks = std::map<std::string, FileLink>;  // by path

// What links show when the plan has been carried out is what it has to be made for: tells in
// `observation` what becomes of those whose files the plan writes or deletes. False when that is
// what it says already.
bool ForeseeLinks(const FileLinks& links, const Plan& plan, Observation& observation);

// Both sides as they are when the plan has been carried out.
Observation Apply(const Plan& plan, const Observation& observation);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_PLANNING_H_
