#ifndef QUORBIX_VIRTDISK_GUARDED_FOLDER_SYNC_H_
#define QUORBIX_VIRTDISK_GUARDED_FOLDER_SYNC_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "quorbix/virtdisk/export.h"

// Keeping a folder of the host and a FAT16 disk image in step, for people's own folders: it looks
// first, refuses what would lose something, keeps what it replaces, remembers across runs, and lets
// every file keep its own name on the host. IFolderSyncManager is the other way: it does without
// all of that, on a thread of its own.
//
// Everything here works on the calling thread, prints nothing, and throws nothing, whatever a disk,
// a folder or an image may do. Where memory runs out, that is a failure as others are, with the
// text "out of memory"; only what returns an object or a path, and no report, throws std::bad_alloc
// then. Texts are for people, in English.

namespace quorbix::virtdisk {

// What can keep a pass from being carried out. While one of them stands that was not accepted,
// nothing is touched.
enum class GuardedHazard {
  kFolderMissing,      // accepted: it is made, and filled from the disk
  kFolderReplaced,     // another folder than last time, by device and inode; accepted: both sides
                       // meet for the first time, and nothing is deleted
  kFolderEmpty,        // while files were agreed on; accepted: they were deleted on purpose
  kFolderUnreadable,   // cannot be accepted
  kFolderNotWritable,  // and the pass has to write there; cannot be accepted
  kImageMissing,       // cannot be accepted
  kImageReplaced,      // another disk than last time, by its volume id, or an older version of it,
                       // by the time of the file; as kFolderReplaced
  kImageEmpty,         // while files were agreed on; accepted: they were deleted on purpose
  kImageUnreadable,    // cannot be accepted
  kImageNotWritable,   // and the pass has to make it anew; cannot be accepted
  kImageNotFat16,      // no FAT16 volume in a partition; accepted, where it is one of fewer than
                   // 4,085 clusters, which other systems take for FAT12: it is used all the same
  kImageUnsound,      // damaged; accepted: what cannot be read there is taken from the folder
  kImageCutShort,     // it shows more than its size has room for; cannot be accepted
  kImageResized,      // accepted: the new size is used
  kOtherPartitions,   // beside the one in step; accepted: the new image is made without them
  kDoesNotFit,        // the folder into the image; cannot be accepted
  kManyDeletions,     // on one side; accepted: they were meant
  kEntryUnreadable,   // an agreed file or folder of the host; accepted: it stays as it is on both
                      // sides
  kKindClash,         // a file on one side where the other has a folder; accepted: both stay, under
                      // different names
  kNested,            // the image or the state lies in the folder, or the folder in the state;
                      // accepted: they take no part. The last cannot be accepted
  kNoRoom,            // on the file system of the folder, of the image or of the trash;
                      // accepted: it is tried
  kStateDamaged,      // what was remembered cannot be read; accepted: both sides meet for the first
                      // time, and nothing is deleted
  kStateNotWritable,  // the state's folder; cannot be accepted
  kConflict,          // with ConflictRule::kStop; accepted: both versions are kept
};

// The name of a hazard, for command lines and logs: "folder-missing".
QUORBIX_VIRTDISK_EXPORT const char* GuardedHazardName(GuardedHazard hazard);

struct GuardedHazardReport {
  GuardedHazard hazard = GuardedHazard::kFolderMissing;
  bool canBeAccepted = false;
  std::string text;                // what would be lost or cannot be done, why, and what to do
  std::vector<std::string> paths;  // that it is about: some of them, when they are very many; "."
                                   // is the folder itself
  std::size_t pathCount = 0;       // how many there are in all; of an image's damages no more
                                   // than 1,000 of a kind count
};

// One thing that a pass does, or would do.
struct GuardedStep {
  enum class Kind {
    kWriteOnHost,   // a file of the disk, new or in place of the folder's
    kMakeOnHost,    // a folder
    kDeleteOnHost,  // a file, which goes to the trash
    kRemoveOnHost,  // an empty folder
    kWriteOnDisk,   // a file of the folder; all of these by making the image anew
    kMakeOnDisk,
    kDeleteOnDisk,
    kRemoveOnDisk,
  };
  enum class Reason {
    kNew,         // on the other side
    kChanged,     // on the other side
    kDeleted,     // on the other side
    kConflict,    // changed on both sides, or different at the first meeting; but what a build has
                  // left without a date is older there than the host's version: kChanged
    kUnreadable,  // on the disk, and so written there again
  };
  Kind kind = Kind::kWriteOnHost;
  Reason reason = Reason::kNew;
  std::string hostPath;     // relative to the folder
  std::string diskPath;     // "/DOCS/README.TXT"
  std::uint64_t bytes = 0;  // of a file's content
  bool isDone = false;      // by Pass
};

// Something to know that keeps nothing from being done: an entry that takes no part, and why.
struct GuardedNote {
  std::string path;  // relative to the folder, or "/DOCS/README.TXT" on the disk; may be empty
  std::string text;
};

enum class GuardedOutcome {
  kNothingToDo,  // both sides are in step
  kDone,         // Preview: there is something to do. Pass: it was done, but for removing folders
                 // on which something is mounted. Without a step where an earlier pass was cut off
                 // and had to be ended: the notes say what that was
  kRefused,      // hazards stand that were not accepted; nothing was touched
  kNotNow,       // to be tried again, as `message` tells: somebody is writing just now, or another
                 // process keeps this pair in step. What was done before that showed is kept
  kFailed,       // the host refused something; `message` says what. Nothing is lost
  kStopped,      // options.stop was set
};

struct GuardedReport {
  GuardedOutcome outcome = GuardedOutcome::kNothingToDo;
  std::string message;  // with kNotNow, kFailed and kRefused
  std::vector<GuardedHazardReport> hazards;
  std::vector<GuardedStep> steps;
  std::vector<GuardedNote> notes;
  bool isFirstMeeting = false;  // nothing was remembered
  std::uint64_t files = 0;      // in step when all steps are done
  std::uint64_t bytes = 0;      // of those
  // When every file of the folder was last read from end to end, in seconds since 1970; 0: never.
  std::int64_t lastReadInFull = 0;
};

// What takes a pass its time.
enum class GuardedWork {
  kReadFolder,   // the files whose content is not known; nobody knows how many there will be
  kReadDisk,     // every file of the image
  kWriteFolder,  // files of the disk
  kMakeDisk,     // the new image, from the files of both sides
  kWriteDisk,    // the new image to its file; with `inPlace`, then over the old one's bytes
  kCheckDisk,    // the new image, read back
  kKeep,         // what has to be copied to the trash, where a rename does not do
  kRestore,      // from the trash
};

// How far it has come with that.
struct GuardedProgress {
  GuardedWork work = GuardedWork::kReadFolder;
  std::uint64_t bytes = 0;
  std::uint64_t total = 0;  // bytes; 0 where nobody knows
};

struct GuardedSyncOptions {
  enum class ConflictRule {
    kKeepBoth,  // the folder's version stays, the disk's is written beside it as
                // "NAME (disk 2026-11-21 17.20.05).EXT"; both are on both sides afterwards
    kTakeDisk,  // what it replaces goes to the trash
    kTakeHost,  // what it replaces is in the old image, which goes to the trash
    kStop,      // a hazard
  };

  // Where the agreed versions, the names, the lock and the trash are kept; made when it is missing.
  // Empty: DefaultStateFolder of the image.
  std::filesystem::path stateFolder{};
  ConflictRule onConflict = ConflictRule::kKeepBoth;
  // How long a side must not have changed before it is touched. Whoever writes several files, or
  // one in pieces, is left to finish. Changes are known by their times: with less than a tick of
  // the file system's clock, some milliseconds, one that comes in the same tick goes unnoticed.
  std::chrono::milliseconds settle{2000};
  // More deletions on one side than this number and this share of the agreed files are a hazard.
  std::size_t mostDeletions = 10;
  double mostDeletedShare = 0.5;
  // The trash keeps no more than this many passes and this many bytes; the oldest go first, and the
  // latest stays whatever its size. One that was cut off and the one that ends it count as one.
  std::size_t trashPasses = 50;
  std::uint64_t trashBytes = std::uint64_t{4} << 30;
  // Writes a new image over the old one's bytes, where they differ, for a machine that has the file
  // open, instead of renaming it into its place. Whoever has it open for writing is not waited for
  // then, and once the bytes are being written `stop` waits for the end.
  bool inPlace = false;
  // Reads every file of the folder, instead of those alone whose size, times or inode differ from
  // what is remembered.
  bool verify = false;
  // When it is set to true, by a signal handler or another thread, the pass ends soon, and leaves
  // nothing half done. Must outlive the object.
  const std::atomic<bool>* stop = nullptr;
  // Is told of the work, on the thread that has called, for each file and each few MiB of one. Has
  // to be quick, and must not throw.
  std::function<void(const GuardedProgress&)> onProgress{};
};

// Keeps one image and one folder in step. Serves one thread at a time.
class QUORBIX_VIRTDISK_EXPORT IGuardedFolderSync {
 public:
  virtual ~IGuardedFolderSync() = default;

  // Tells what Pass would do now with these hazards accepted. Touches nothing, neither the two
  // sides nor the state. While somebody else has the locks it is kNotNow, and tells all the same
  // what there is to do.
  virtual GuardedReport Preview(const std::vector<GuardedHazard>& accepted = {}) = 0;

  // Looks as Preview does. Then, unless a hazard stands that is not among `accepted`, carries out
  // what it has seen, and tells what was done.
  //
  // Whatever is replaced or deleted is in the trash afterwards. A pass may be killed at any moment:
  // no content is lost, and the next one goes on from there. What changes while a pass runs is left
  // for the next one.
  //
  // The first call takes the lock of the state's folder and that of the folder itself, which this
  // object then keeps; it is kNotNow while another one has either. Both are those of flock(2); a
  // folder on a file system without them is kept in step all the same.
  virtual GuardedReport Pass(const std::vector<GuardedHazard>& accepted = {}) = 0;
};

// Returns a new object, owned by the caller. Nothing is looked at yet. Relative paths begin where
// the process is now, wherever it goes later.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT std::unique_ptr<IGuardedFolderSync> CreateGuardedFolderSync(
    const std::filesystem::path& image, const std::filesystem::path& folder,
    const GuardedSyncOptions& options = {});

// Where a sync of `image` keeps its state and its trash, unless its options name another folder:
// the image's absolute path, that which a link leads to, with ".sync" behind it. Neither needs to
// exist.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT std::filesystem::path DefaultStateFolder(
    const std::filesystem::path& image);

// One thing in the trash.
struct TrashedItem {
  std::string id;    // names it in RestoreTrashed
  std::string time;  // of the pass that put it there: "2026-11-21 17.20.05"
  std::string side;  // "folder" or "disk"
  std::string path;  // where it was: relative to the folder; a whole image's is its file name
  std::string why;   // "replaced", "deleted", "image replaced", "half written", "left over",
                     // "restored over"
  std::uint64_t bytes = 0;
};

// Lists what a state folder's trash holds, the oldest first. On failure returns false, says why in
// `err` and leaves `items` empty; a state folder without a trash is an empty one.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT bool ListTrash(const std::filesystem::path& stateFolder,
                                                     std::vector<TrashedItem>& items,
                                                     std::string& err);

// Copies a thing out of the trash to `target`, through a temporary file and a rename; it stays in
// the trash as well. Folders above `target` that are missing are made. An existing `target` is
// refused. On failure returns false and says why in `err`. `stop`, when it is set meanwhile, and
// `onProgress` are those of GuardedSyncOptions: what was stopped has left nothing behind, and its
// text is "it was stopped".
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT bool RestoreTrashed(
    const std::filesystem::path& stateFolder, const std::string& id,
    const std::filesystem::path& target, std::string& err, const std::atomic<bool>* stop = nullptr,
    const std::function<void(const GuardedProgress&)>& onProgress = {});

// The same, and what stands at `target` goes to the trash first, as "restored over": it can be
// brought back in turn. A file or a link is replaced, nothing else. There is a file under that name
// at every moment, and a kill at any of them loses nothing. Fails, too, while somebody else has the
// lock of the state's folder, which a running pass's object has, or has an image that is to be
// replaced open for writing.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT bool RestoreTrashedOver(
    const std::filesystem::path& stateFolder, const std::string& id,
    const std::filesystem::path& target, std::string& err, const std::atomic<bool>* stop = nullptr,
    const std::function<void(const GuardedProgress&)>& onProgress = {});

}  // namespace quorbix::virtdisk

#endif  // QUORBIX_VIRTDISK_GUARDED_FOLDER_SYNC_H_
