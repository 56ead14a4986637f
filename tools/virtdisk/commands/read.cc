#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <unordered_set>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "commands/commands.h"
#include "disk/extraction.h"
#include "disk/image_file.h"
#include "disk/image_tree.h"
#include "host/host_file.h"
#include "terminal/exit_status.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kImageItself[] = "it would take the place of the image that is read";
constexpr char kNoFolder[] = "a symbolic link or a file stands where a folder should be";

std::string HintFor(const std::string& message, const std::string& path, const fs::path& image) {
  const std::string what = Within(path, image);
  if (message == "file not found") {
    return what + ": `virtdisk find` and `virtdisk ls` show what there is.";
  }
  if (message == "path is a directory") {
    return what + ": `virtdisk ls` lists it, `virtdisk get` copies all of it.";
  }
  return what + ": the file's chain of clusters is damaged.";
}

// Copies the entries of a directory one after another. A refused or failed one does not stop the
// others.
class Extractor {
 public:
  Extractor(Console& theConsole, const Fat16FsImage& theImage, const GetOptions& theOptions)
      : console(theConsole), image(theImage), options(theOptions) {}

  int Run(const std::vector<ExtractionStep>& steps) {
    if (!MakeDestination()) return kFailed;
    for (const ExtractionStep& step : steps) Take(step);
    return exitStatus;
  }

 private:
  bool MakeDestination() {
    std::error_code failed;
    fs::create_directories(options.destination, failed);
    if (fs::is_directory(options.destination)) return true;
    Fail(console,
         "cannot make the folder " + options.destination.string() + ": " +
             (failed ? failed.message() : "something else has that name"),
         "Give the path of a folder, or of one that can be made.");
    return false;
  }

  void Take(const ExtractionStep& step) {
    if (step.refusal != nullptr) return Refuse(step, step.refusal);
    const std::string parent = fs::path(step.target).parent_path().string();
    if (!parent.empty() && !realFolders.contains(parent)) return Refuse(step, kNoFolder);
    const fs::path target = options.destination / step.target;
    if (step.entry->isDirectory) {
      MakeFolder(step, target);
    } else {
      CopyFile(step, target);
    }
  }

  void MakeFolder(const ExtractionStep& step, const fs::path& target) {
    std::error_code failed;
    fs::create_directory(target, failed);
    const fs::file_status status = fs::symlink_status(target, failed);
    if (fs::is_directory(status)) {
      realFolders.insert(step.target);
    } else {
      Refuse(step, fs::exists(status) ? kNoFolder : failed.message());
    }
  }

  void CopyFile(const ExtractionStep& step, const fs::path& target) {
    if (IsSameFile(target, options.image)) return Refuse(step, kImageItself);
    std::vector<std::uint8_t> content;
    std::string err;
    if (!image.ReadFile(step.entry->path, content, err)) {
      exitStatus = Fail(console, err, HintFor(err, step.entry->path, options.image));
    } else if (!WriteHostFile(target, content, err)) {
      exitStatus = Fail(console, err, "Not copied: " + step.entry->path);
    }
  }

  void Refuse(const ExtractionStep& step, const std::string& reason) {
    exitStatus = Fail(console, "refused to extract " + step.entry->path + ": " + reason,
                      "What is not refused is extracted.");
  }

  Console& console;
  const Fat16FsImage& image;
  const GetOptions& options;
  int exitStatus = kDone;
  // Below the destination, made or found there. Nothing is written through anything else, so that
  // no symbolic link leads out of the destination.
  std::unordered_set<std::string> realFolders;
};

int GetFile(Console& console, const Fat16FsImage& image, const GetOptions& options) {
  std::vector<std::uint8_t> content;
  std::string err;
  if (!image.ReadFile(options.path, content, err)) {
    return Fail(console, err, HintFor(err, options.path, options.image));
  }
  fs::path target = options.destination;
  std::error_code ignored;
  if (fs::is_directory(target, ignored)) {
    const ImageTree tree(image);
    const Fat16FsEntry* entry = tree.Find(options.path);
    if (entry == nullptr || !StaysInFolder(entry->name)) {
      return Fail(console, "refused to extract " + options.path + " under its own name",
                  "Give the file's new name as the destination.");
    }
    target /= entry->name;
  }
  if (IsSameFile(target, options.image)) {
    Fail(console, options.path + " would take the image's place: " + options.image.string(),
         "Give another destination.");
    return kRefused;
  }
  if (WriteHostFile(target, content, err)) return kDone;
  return Fail(console, err,
              "Not copied: " + options.path + ". Does the folder exist, and may you write there?");
}

}  // namespace

int RunCat(Console& console, const CatOptions& options) {
  Fat16FsImage image;
  if (!LoadImage(console, options.image, image)) return kFailed;
  std::vector<std::uint8_t> content;
  std::string err;
  if (!image.ReadFile(options.path, content, err)) {
    return Fail(console, err, HintFor(err, options.path, options.image));
  }
  console.out.write(reinterpret_cast<const char*>(content.data()),
                    static_cast<std::streamsize>(content.size()));
  return kDone;
}

int RunGet(Console& console, const GetOptions& options) {
  Fat16FsImage image;
  if (!LoadImage(console, options.image, image)) return kFailed;
  std::vector<Fat16FsEntry> ignored;
  std::string err;
  if (!image.ListDirectory(options.path, ignored, err)) return GetFile(console, image, options);
  const ImageTree tree(image);
  return Extractor(console, image, options)
      .Run(PlanExtraction(tree.Below(options.path), options.path));
}

}  // namespace quorbix::virtdisk::tool
