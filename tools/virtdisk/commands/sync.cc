#include <chrono>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <quorbix/virtdisk/fat16_fs_image.h>
#include <quorbix/virtdisk/folder_sync_manager.h>

#include "commands/changes.h"
#include "commands/commands.h"
#include "commands/side_listing.h"
#include "disk/image_file.h"
#include "host/stop_signals.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

// A manager learns its paths from Start, and its own worker would end the process with whatever a
// pass throws. So the worker is stopped again at once, and the passes run on this thread, where
// they can be caught, looked at before and after, and ended between two of them without delay.
// Should the stop reach the worker just before it begins to wait, it is seen when the wait ends:
// this long after, and without a pass.
constexpr unsigned kStopDelayMs = 1000;

std::unique_ptr<IFolderSyncManager> ManagerWithoutWorker(const SyncOptions& options) {
  std::unique_ptr<IFolderSyncManager> manager = CreateFolderSyncManager();
  manager->Start(options.image, options.folder, kStopDelayMs);
  manager->Stop();
  return manager;
}

class Synchroniser {
 public:
  Synchroniser(Console& theConsole, const SyncOptions& theOptions)
      : console(theConsole),
        options(theOptions),
        manager(ManagerWithoutWorker(theOptions)),
        imageSide(theOptions.image) {}

  // Whether the pass went through.
  bool Pass() {
    const Listing hostBefore = ListHostSide(options.folder);
    const std::optional<Listing> imageBefore = ListImage();
    const bool done = RunPass();
    Tell("image -> host: ", hostBefore, ListHostSide(options.folder));
    const std::optional<Listing> imageAfter = ListImage();
    if (imageBefore && imageAfter) Tell("host -> image: ", *imageBefore, *imageAfter);
    console.out.flush();
    return done && imageAfter.has_value();
  }

 private:
  bool RunPass() {
    try {
      manager->SyncNow();
      return true;
    } catch (const std::exception& error) {
      Fail(console, error.what(),
           "The pass was cut short. Make what it names readable, or remove it; the next pass "
           "tries again.");
      return false;
    }
  }

  // Tells of an image that cannot be read once, until it can be again.
  std::optional<Listing> ListImage() {
    std::string err;
    std::optional<Listing> listing = imageSide.List(err);
    if (!listing && !unreadable) {
      Fail(console, err, "Nothing is synchronised until the image can be read again.");
    }
    unreadable = !listing;
    return listing;
  }

  void Tell(const char* direction, const Listing& before, const Listing& after) {
    for (const Change& change : Compare(before, after)) {
      console.out << direction << Printable(change.path) << " (" << Describe(change.kind) << ")\n";
    }
  }

  Console& console;
  const SyncOptions& options;
  std::unique_ptr<IFolderSyncManager> manager;
  ImageSide imageSide;
  bool unreadable = false;
};

// A pass says nothing when it cannot use the image, so that is looked at beforehand.
bool CanBeSynchronised(Console& console, const SyncOptions& options) {
  Fat16FsImage image;
  if (!LoadImage(console, options.image, image)) return false;
  if (image.Info().partitioned) return true;
  Fail(console, "the image has no partition table: " + options.image.string(),
       "Only images with one can be synchronised; `virtdisk build` makes such images.");
  return false;
}

// A pass would make a missing folder itself, but say nothing when it cannot.
bool MakeFolder(Console& console, const SyncOptions& options) {
  std::error_code failed;
  std::filesystem::create_directories(options.folder, failed);
  std::error_code unknown;
  if (std::filesystem::is_directory(options.folder, unknown)) return true;
  const bool exists = std::filesystem::exists(options.folder, unknown);
  Fail(console,
       exists ? "not a folder: " + options.folder.string()
              : "cannot make the folder " + options.folder.string() + ": " + failed.message(),
       "Give the folder that the image is to be kept in step with.");
  return false;
}

}  // namespace

int RunSync(Console& console, const SyncOptions& options) {
  StopSignals signals;
  if (!CanBeSynchronised(console, options) || !MakeFolder(console, options)) return kFailed;
  Synchroniser synchroniser(console, options);
  if (options.once) {
    const bool done = synchroniser.Pass();
    signals.WaitFor(std::chrono::milliseconds(0));  // one that came meanwhile has been obeyed
    return done ? kDone : kFailed;
  }
  console.err << "Keeping " << Printable(options.image.string()) << " and "
              << Printable(options.folder.string()) << " in step; Ctrl-C ends it.\n";
  do {
    synchroniser.Pass();
  } while (console.out.good() && !signals.WaitFor(std::chrono::milliseconds(options.intervalMs)));
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
