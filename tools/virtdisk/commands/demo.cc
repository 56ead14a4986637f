#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>
#include <quorbix/virtdisk/fat16_fs_image.h>
#include <quorbix/virtdisk/fat_image_builder.h>
#include <quorbix/virtdisk/folder_sync_manager.h>

#include "commands/auto_size.h"
#include "commands/commands.h"
#include "commands/demo_sample.h"
#include "commands/side_listing.h"
#include "disk/image_tree.h"
#include "disk/map.h"
#include "disk/map_text.h"
#include "host/host_file.h"
#include "host/stop_signals.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kIntervalMs = 200;
constexpr std::chrono::seconds kPatience{30};
constexpr std::chrono::milliseconds kLookEvery{20};
constexpr char kHostLine[] = "Edited on the host.\n";
constexpr char kGuestText[] = "Edited inside the disk.\n";

// A step that did not happen, and why.
struct StepFailed : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class WorkFolder {
 public:
  explicit WorkFolder(bool keepIt) : keep(keepIt) {
    std::string name = (fs::temp_directory_path() / "virtdisk-demo-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw StepFailed("cannot make a folder like " + name);
    path = name;
  }
  ~WorkFolder() {
    std::error_code ignored;
    if (!keep) fs::remove_all(path, ignored);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  const fs::path& Path() const { return path; }

 private:
  const bool keep;
  fs::path path;
};

std::string ReadText(const fs::path& file) {
  std::vector<std::uint8_t> bytes;
  std::string err;
  if (!ReadHostFile(file, bytes, err)) throw StepFailed(err);
  return {bytes.begin(), bytes.end()};
}

void Load(const fs::path& file, Fat16FsImage& image) {
  std::vector<std::uint8_t> bytes;
  std::string err;
  if (!ReadHostFile(file, bytes, err) || !image.LoadFromBytes(bytes, err)) throw StepFailed(err);
}

BuildPreview Preview(const fs::path& folder) {
  BuildPreview preview;
  std::string err;
  if (!PreviewBuild(folder, preview, err)) throw StepFailed(err);
  return preview;
}

class Demonstration {
 public:
  Demonstration(Console& theConsole, const DemoOptions& theOptions)
      : console(theConsole),
        options(theOptions),
        work(theOptions.keep),
        folder(work.Path() / "SHARED"),
        disk(work.Path() / "disk.img") {}

  void Run() {
    MakeFolder();
    BuildDisk();
    ChooseFiles();
    StartSync();
    EditOnHost();
    EditInsideDisk();
    manager->Stop();
    Show();
    if (options.keep) console.out << "\nKept in " << Printable(work.Path().string()) << "\n";
  }

 private:
  void Say(const std::string& text) {
    console.out << ++step << ". " << Printable(text) << std::endl;
  }

  void MakeFolder() {
    if (options.folder.empty()) {
      WriteSample(folder);
      return Say("Made a sample folder, " + folder.string());
    }
    const BuildPreview preview = Preview(options.folder);
    if (preview.isEndless) throw StepFailed(options.folder.string() + " is too large for a disk");
    CopyUnderShortNames(options.folder, preview, folder);
    Say("Copied " + options.folder.string() + " to " + folder.string() +
        ", under the names that a disk can hold");
  }

  // One size up from the smallest, so that files can grow.
  void BuildDisk() {
    const BuildPreview preview = Preview(folder);
    const std::uint64_t smallest = AutoSize(preview);
    const std::uint64_t size = smallest == 0 ? 0 : AutoSize(preview, smallest);
    if (size == 0) throw StepFailed("no disk can hold a copy of " + options.folder.string());
    const std::unique_ptr<IFatImageBuilder> builder = CreateFat16Builder();
    if (!builder->Build(folder, disk, size)) throw StepFailed(builder->LastError());
    Say("Built the disk " + disk.string() + ", " + FormatBytes(size));
  }

  void ChooseFiles() {
    std::vector<std::string> files;
    for (const auto& [path, marks] : ListHostSide(folder)) {
      if (marks.size != 0) files.push_back(path);
    }
    if (files.size() < 2) throw StepFailed(folder.string() + " needs two files that are not empty");
    hostEdited = files.front();
    guestEdited = files.back();
  }

  // The first pass is run here, so that both sides agree before anything is edited.
  void StartSync() {
    manager = CreateFolderSyncManager();
    manager->Start(disk, folder, kIntervalMs);
    manager->SyncNow();
    Say("Started to keep both in step, every " + std::to_string(kIntervalMs) + " ms");
  }

  void EditOnHost() {
    const std::string expected = ReadText(folder / hostEdited) + kHostLine;
    std::ofstream out(folder / hostEdited, std::ios::binary | std::ios::app);
    out << kHostLine;
    out.close();
    if (!out) throw StepFailed("cannot write " + (folder / hostEdited).string());
    Say("Edited " + hostEdited + " in the folder");
    WaitUntil("the edit on the host to reach the disk", [&] {
      // The disk may be looked at while it is being written.
      std::vector<std::uint8_t> bytes;
      std::string err;
      Fat16FsImage image;
      return ReadHostFile(disk, bytes, err) && image.LoadFromBytes(bytes, err) &&
             image.ReadFile("/" + hostEdited, bytes, err) &&
             std::string(bytes.begin(), bytes.end()) == expected;
    });
    Say("The edit has reached the disk");
  }

  void EditInsideDisk() {
    // Waits for the pass that carried the last edit: what it writes down about the disk at its end
    // must not meet the disk as it is after the next edit.
    manager->SyncNow();
    Fat16FsImage image;
    Load(disk, image);
    const std::string text = kGuestText;
    std::string err;
    if (!image.WriteExistingFile("/" + guestEdited, {text.begin(), text.end()}, err) ||
        !WriteHostFile(disk, image.ImageBytes(), err)) {
      throw StepFailed(err);
    }
    Say("Edited " + guestEdited + " inside the disk");
    WaitUntil("the edit inside the disk to reach the folder",
              [&] { return ReadText(folder / guestEdited) == text; });
    Say("The edit has reached the folder");
  }

  void WaitUntil(const std::string& what, const std::function<bool()>& happened) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!happened()) {
      if (signals.WaitFor(kLookEvery)) throw StepFailed("interrupted");
      if (std::chrono::steady_clock::now() >= deadline) {
        throw StepFailed("waited " + std::to_string(kPatience.count()) + " s in vain for " + what);
      }
    }
  }

  void Show() {
    Fat16FsImage image;
    Load(disk, image);
    const ImageTree tree(image);
    console.out << "\nThe folder:\n";
    for (const auto& [path, marks] : ListHostSide(folder)) {
      console.out << "  " << Printable(path) << ", " << Count(marks.size, "byte", "bytes") << "\n";
    }
    console.out << "\nThe disk:\n";
    for (const Fat16FsEntry* entry : tree.Below("/")) {
      if (entry->isDirectory) continue;
      console.out << "  " << Printable(entry->path.substr(1)) << ", "
                  << Count(entry->size, "byte", "bytes") << "\n";
    }
    const DiskMap map = MapVolume(VolumeView(image.Info(), image.ImageBytes()), tree.Entries());
    const std::string heading =
        image.Info().volumeLabel + ": " + DescribeVolume(map, image.ImageBytes().size());
    console.out << "\n" << DrawText(map, heading, {console.width, console.colour});
  }

  Console& console;
  const DemoOptions& options;
  StopSignals signals;  // before any thread is started
  WorkFolder work;
  const fs::path folder;
  const fs::path disk;
  std::string hostEdited;  // relative to the folder
  std::string guestEdited;
  int step = 0;
  std::unique_ptr<IFolderSyncManager> manager;  // ends before the folder is removed
};

}  // namespace

int RunDemo(Console& console, const DemoOptions& options) {
  try {
    Demonstration(console, options).Run();
    return kDone;
  } catch (const std::exception& error) {
    return Fail(console, error.what(), "The demonstration stopped there.");
  }
}

}  // namespace quorbix::virtdisk::tool
