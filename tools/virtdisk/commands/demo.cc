#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>
#include <quorbix/virtdisk/fat16_fs_image.h>
#include <quorbix/virtdisk/guarded_folder_sync.h>

#include "builder/image_content.h"
#include "commands/auto_size.h"
#include "commands/build_output.h"
#include "commands/commands.h"
#include "commands/demo_sample.h"
#include "commands/shown_build.h"
#include "commands/shown_preview.h"
#include "commands/sync_report.h"
#include "commands/work_line.h"
#include "disk/image_tree.h"
#include "disk/map.h"
#include "disk/map_text.h"
#include "fat16/fat16_image.h"
#include "host/host_file.h"
#include "host/scratch_folder.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/progress.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kHostLine[] = "Edited on the host.\n";
constexpr char kGuestText[] = "Edited inside the disk.\n";

// A step that did not happen, and why.
struct StepFailed : std::runtime_error {
  explicit StepFailed(const std::string& why,
                      std::string whatToDo = "The demonstration stopped there.")
      : std::runtime_error(why), hint(std::move(whatToDo)) {}

  std::string hint;
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

BuildPreview Preview(Console& console, const fs::path& folder) {
  BuildPreview preview;
  std::string err;
  if (!PreviewWithProgress(console, folder, preview, err)) throw StepFailed(err);
  return preview;
}

// Bytes of the regular files of a folder, by path.
std::map<std::string, std::uint64_t> FilesOf(const fs::path& folder) {
  std::map<std::string, std::uint64_t> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    files.emplace(entry.path().lexically_relative(folder).string(), entry.file_size());
  }
  return files;
}

class Demonstration {
 public:
  Demonstration(Console& theConsole, const DemoOptions& theOptions, const fs::path& workFolder)
      : console(theConsole),
        options(theOptions),
        work(workFolder),
        folder(work / "SHARED"),
        disk(work / "disk.img") {}

  void Run() {
    MakeFolder();
    BuildDisk();
    ChooseFiles();
    Meet();
    EditOnHost();
    EditInsideDisk();
    Show();
    if (options.keep && !options.json) {
      PrintToOut(console, "\nKept in " + Printable(work.string()) + "\n");
    }
  }

 private:
  void Say(const std::string& text) {
    ++step;
    if (options.json) {
      console.out << OneLine({{"step", step}, {"text", text}}) << std::endl;
    } else {
      PrintToOut(console, std::to_string(step) + ". " + Printable(text) + "\n");
      console.out.flush();
    }
  }

  void MakeFolder() {
    if (options.folder.empty()) {
      WriteSample(folder);
      return Say("Made a sample folder, " + folder.string());
    }
    const BuildPreview preview = Preview(console, options.folder);
    if (preview.isEndless) throw StepFailed(options.folder.string() + " is too large for a disk");
    CopyShown(preview);
    Say("Copied " + options.folder.string() + " to " + folder.string());
  }

  void CopyShown(const BuildPreview& preview) const {
    Progress progress(console, "copying the folder", preview.fileBytes);
    CopyFolder(options.folder, preview, folder, [&](std::uint64_t bytes) { progress.Add(bytes); });
  }

  // One size up from the smallest, so that files can grow.
  void BuildDisk() {
    const BuildPreview preview = Preview(console, folder);
    const std::uint64_t smallest = AutoSize(preview);
    const std::uint64_t size = smallest == 0 ? 0 : AutoSize(preview, smallest);
    if (size == 0) throw StepFailed("no disk can hold a copy of " + options.folder.string());
    std::string err;
    std::vector<std::string> skipped;
    ImageOutput output;
    internal::Fat16Image image;
    if (!output.Open(disk, false, err) ||
        !FillShown(console, image, size, internal::LabelFor(folder), folder, preview.fileBytes, err,
                   skipped) ||
        !WriteShown(console, image, output, err)) {
      throw StepFailed(err);
    }
    Say("Built the disk " + disk.string() + ", " + FormatBytes(size));
  }

  void ChooseFiles() {
    std::vector<std::string> files;
    for (const auto& [path, bytes] : FilesOf(folder)) {
      if (bytes != 0) files.push_back(path);
    }
    if (files.size() < 2) {
      throw StepFailed(
          options.folder.string() + " needs two files that are not empty",
          "Names that begin with \".\" do not count: no listing of a disk shows them.");
    }
    hostEdited = files.front();
    guestEdited = files.back();
  }

  void Meet() {
    // Everything here was made just now, by this process alone: there is nobody to wait for.
    sync = CreateGuardedFolderSync(
        disk, folder,
        {.settle = std::chrono::milliseconds(0),
         .onProgress = [this](const GuardedProgress& told) { line->Show(told); }});
    Pass();
    Say("Looked at both: they are in step");
  }

  void Pass() {
    line.emplace(console);
    const GuardedReport report = sync->Pass();
    line.reset();
    const bool isDone =
        report.outcome == GuardedOutcome::kDone || report.outcome == GuardedOutcome::kNothingToDo;
    if (!isDone) throw StepFailed(report.message);
    if (options.json) {
      console.out << OneLine(ReportObject(report, DateAndClockText())) << std::endl;
      return;
    }
    for (const GuardedStep& done : report.steps) {
      PrintToOut(console, "   " + StepLine(done, ClockText()) + "\n");
      console.out.flush();
    }
  }

  void EditOnHost() {
    std::ofstream out(folder / hostEdited, std::ios::binary | std::ios::app);
    out << kHostLine;
    out.close();
    if (!out) {
      std::string err;
      FailToWriteFile(err, folder / hostEdited, SystemText(EIO));
      throw StepFailed(err);
    }
    Say("Edited " + hostEdited + " in the folder");
    Pass();
    Say("The edit has reached the disk");
  }

  void EditInsideDisk() {
    const std::string text = kGuestText;
    Fat16FsImage image;
    Load(disk, image);
    std::string err;
    if (!image.WriteExistingFile(DiskPathOf(guestEdited), {text.begin(), text.end()}, err) ||
        !WriteHostFile(disk, image.ImageBytes(), err)) {
      throw StepFailed(err);
    }
    Say("Edited " + DiskPathOf(guestEdited) + " inside the disk");
    Pass();
    if (ReadText(folder / guestEdited) != text) throw StepFailed("the edit did not arrive");
    Say("The edit has reached the folder");
  }

  // The name that the build has given it.
  std::string DiskPathOf(const std::string& hostPath) const {
    const BuildPreview preview = Preview(console, folder);
    for (const BuildPreviewEntry& entry : preview.entries) {
      if (entry.hostPath == hostPath) return entry.imagePath;
    }
    throw StepFailed(hostPath + " is not on the disk");
  }

  void Show() {
    Fat16FsImage image;
    Load(disk, image);
    const ImageTree tree(image);
    if (options.json) return ShowAsJson(tree);
    console.out << "\nThe folder:\n";
    for (const auto& [path, bytes] : FilesOf(folder)) {
      PrintToOut(console, "  " + Printable(path) + ", " + Count(bytes, "byte", "bytes") + "\n");
    }
    console.out << "\nThe disk:\n";
    for (const Fat16FsEntry* entry : tree.Below("/")) {
      if (entry->isDirectory) continue;
      PrintToOut(console, "  " + Printable(entry->path.substr(1)) + ", " +
                              Count(entry->size, "byte", "bytes") + "\n");
    }
    const DiskMap map = MapVolume(VolumeView(image.Info(), image.ImageBytes()), tree.Entries());
    const std::string heading =
        image.Info().volumeLabel + ": " + DescribeVolume(map, image.ImageBytes().size());
    PrintToOut(console, "\n" + DrawText(map, heading, {console.width, console.colour}));
  }

  void ShowAsJson(const ImageTree& tree) {
    Json record{{"keptIn", options.keep ? Json(work.string()) : Json()},
                {"folder", Json::array()},
                {"disk", Json::array()}};
    for (const auto& [path, bytes] : FilesOf(folder)) {
      record["folder"].push_back({{"path", path}, {"bytes", bytes}});
    }
    for (const Fat16FsEntry* entry : tree.Below("/")) {
      record["disk"].push_back(EntryRecord(*entry, tree.IsHidden(*entry)));
    }
    console.out << OneLine(record) << "\n";
  }

  Console& console;
  const DemoOptions& options;
  const fs::path work;
  const fs::path folder;
  const fs::path disk;
  std::string hostEdited;  // relative to the folder
  std::string guestEdited;
  int step = 0;
  std::optional<WorkLine> line;  // of the pass that is under way
  std::unique_ptr<IGuardedFolderSync> sync;
};

}  // namespace

int RunDemo(Console& console, const DemoOptions& options) {
  try {
    ScratchFolder work;
    std::string err;
    if (!work.Make("virtdisk-demo-", options.keep, err)) {
      throw StepFailed(err,
                       "TMPDIR names the folder for it: set it to one in which you may write.");
    }
    Demonstration(console, options, work.Path()).Run();
    return kDone;
  } catch (const StepFailed& error) {
    Fail(console, error.what(), error.hint);
    return kFailed;
  } catch (const std::exception& error) {
    Fail(console, error.what(), "The demonstration stopped there.");
    return kFailed;
  }
}

}  // namespace quorbix::virtdisk::tool
