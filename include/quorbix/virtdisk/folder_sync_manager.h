#ifndef QUORBIX_VIRTDISK_FOLDER_SYNC_MANAGER_H_
#define QUORBIX_VIRTDISK_FOLDER_SYNC_MANAGER_H_

#include <filesystem>
#include <memory>

#include "quorbix/virtdisk/export.h"

namespace quorbix::virtdisk {

// Keeps a folder on the host and the files of a FAT16 disk image in step, in both directions.
//
// A pass compares, file by file, the folder, the image and the state in which both last agreed.
// Files that changed in the image are written to the folder, each through a temporary file named as
// its target plus ".quorbix_tmp" and a rename. Files deleted in the image are deleted in the
// folder, and folders left empty are removed. When anything changed in the folder, the whole image
// is rebuilt from it at its current size. When both sides changed a file, the folder's version
// wins, unless its time stamp is the lower of two that are compared raw, in different units: for
// folder files dated before the year 2174 that makes the image's version win, dated or not.
//
// Files whose own name begins with "." are passed over on the host and are not part of the agreed
// state; a rebuild still copies them into the image. Nothing is written through a link to a folder.
// Names that are not 8.3 already do not meet their own short form in the image, which is written
// out beside them: keep to 8.3 names, those of folders in upper case.
//
// Nothing is reported. A pass that fails changes nothing further, and the next one tries again; a
// single file that could not be carried over is tried again by the first pass that finds a change
// on either side. The agreed state lives in memory and is forgotten by Start.
//
// Beware: when a rebuild fails (the folder no longer fits into the image, say), the folder as it is
// still becomes the agreed state, and files that never reached the image are then taken as deleted
// there: a later pass deletes them from the folder. Keep the folder well below the image's size.
//
// Beware: a pass that rebuilds nothing looks at the folder twice. What is edited there between both
// looks becomes the agreed state without having reached the image. The next pass that finds a
// change on either side then takes the image for the newer one: it overwrites the edit, or deletes
// the file when it was new. Leave the folder alone while the guest's changes are copied out; where
// that cannot be had, save what was just edited under a new name as well, which carries it over.
//
// Beware: what the guest edits or adds behind a link to a folder never reaches the host, and is
// gone from the image with the next rebuild. Keep real folders in the synchronised one, or tell the
// users of the guest to leave the linked ones alone.
class QUORBIX_VIRTDISK_EXPORT IFolderSyncManager {
 public:
  virtual ~IFolderSyncManager() = default;

  // Starts the worker thread, named "fat-sync", which runs a pass every `intervalMs` milliseconds,
  // counted from the end of the previous one; the first comes one interval from now. 0 is accepted:
  // passes then follow one another without a pause.
  //
  // `imagePath` must be an image with a partition table. A folder `hostRoot` that is missing is
  // created by the first pass that finds the image. A worker that already runs is ended and joined
  // first. All agreed state is forgotten, so that the first pass merges both sides.
  //
  // Throws std::system_error when no thread can be started. Do not call it while another thread is
  // inside SyncNow or Stop.
  //
  // An error in the middle of listing the folder (a sub-folder that cannot be opened, or that
  // vanishes before it is entered) is an exception; on the worker thread it ends the process
  // through std::terminate, as exhausted memory does. An application that cannot vouch for every
  // sub-folder passes an interval so long that the worker never comes to a pass, calls SyncNow on a
  // thread of its own whenever one is due, and catches. (Stop must then not follow Start at once:
  // see there.)
  virtual void Start(const std::filesystem::path& imagePath, const std::filesystem::path& hostRoot,
                     unsigned int intervalMs = 5000) = 0;

  // Asks the worker to end and waits until it has; a pass that is under way is finished first.
  // Without a worker it returns at once. The wait can last one interval longer when the request
  // meets the worker just as it begins to wait. Not to be called from two threads at once. The
  // destructor does the same; no other call may be under way then.
  virtual void Stop() = 0;

  // Runs one pass on the calling thread, after waiting for a pass of the worker to finish, whether
  // or not the worker runs; before the first Start it does nothing. A cycle of the worker that
  // falls into it is skipped. May be called from several threads.
  //
  // Throws std::filesystem::filesystem_error when listing the folder fails half way; the pass is
  // then cut short, no lock is held any more, and the manager can go on to be used. The exception
  // carries the system's error and the folder's path: make it readable, or remove it, and call
  // again.
  virtual void SyncNow() = 0;

  // True from Start until Stop is called. Not to be called while another thread is inside Start or
  // Stop.
  virtual bool IsRunning() const = 0;
};

// Returns a new manager, owned by the caller. It starts no thread.
[[nodiscard]] QUORBIX_VIRTDISK_EXPORT std::unique_ptr<IFolderSyncManager> CreateFolderSyncManager();

}  // namespace quorbix::virtdisk

#endif  // QUORBIX_VIRTDISK_FOLDER_SYNC_MANAGER_H_
