#include <cstdint>
#include <filesystem>
#include <system_error>
#include <vector>

#include "commands/commands.h"
#include "disk/extraction.h"
#include "disk/extractor.h"
#include "disk/file_lookup.h"
#include "disk/image_tree.h"
#include "disk/opened_image.h"
#include "host/output_place.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

ExtractionSettings SettingsOf(const GetOptions& options) {
  return {options.image, options.destination, options.force};
}

void GetFile(Console& console, const OpenedImage& image, const GetOptions& options,
             ExtractionOutcome& outcome) {
  outcome.status = kFailed;
  const auto entry = FindFile(console, image, options.path, options.image, options.all);
  if (!entry) return;
  fs::path target = options.destination;
  std::error_code ignored;
  if (!target.has_filename() && !fs::is_directory(target, ignored)) {
    Fail(console, "there is no folder " + target.string(),
         "Make it first, or leave out the slash.");
    return;
  }
  if (fs::is_directory(target, ignored)) {
    if (!StaysInFolder(entry->name)) {
      Fail(console, "refused to extract " + options.path + " under its own name",
           "Give the file's new name as the destination.");
      return;
    }
    target /= entry->name;
  }
  if (LookAtOutput(target) == OutputKind::kNoRegularFile) {
    outcome.status = Refuse(console, target.string() + " is no regular file",
                            "`virtdisk cat` writes to the standard output.");
    return;
  }
  if (IsSameFile(target, options.image)) {
    outcome.status =
        Refuse(console, options.path + " would take the image's place: " + options.image.string(),
               "Give another destination.");
    return;
  }
  outcome.status = kDone;
  Extractor extractor(console, image, SettingsOf(options), BytesThere(image, *entry), outcome);
  if (extractor.CopyFile(*entry, target)) return;
  outcome.failed.push_back({entry->path, ExtractionOutcome::kExists});
  outcome.status =
      Refuse(console, target.string() + " exists", "--force replaces it; nothing was written.");
}

void GetDirectory(Console& console, const OpenedImage& image, const ImageTree& tree,
                  const GetOptions& options, ExtractionOutcome& outcome) {
  const std::vector<const Fat16FsEntry*> entries = tree.Below(options.path);
  std::uint64_t bytes = 0;
  for (const Fat16FsEntry* entry : entries) {
    if (!entry->isDirectory) bytes += BytesThere(image, *entry);
  }
  Extractor(console, image, SettingsOf(options), bytes, outcome)
      .Run(PlanExtraction(entries, options.path));
  if (options.all) image.TellHiddenLeftOut(console);
}

Json OutcomeRecord(Console& console, const GetOptions& options, const ExtractionOutcome& outcome) {
  Json failed = Json::array();
  for (const ExtractionOutcome::Failure& failure : outcome.failed) {
    failed.push_back({{"path", failure.path}, {"reason", failure.reason}});
  }
  Json record{{"image", options.image.string()},
              {"path", options.path},
              {"destination", options.destination.string()},
              {"files", outcome.files},
              {"directories", outcome.directories},
              {"bytes", outcome.bytes},
              {"short", outcome.shortFiles},
              {"failed", failed}};
  AddError(console, record);
  return record;
}

}  // namespace

int RunGet(Console& console, const GetOptions& options) {
  if (options.path.empty()) return FailAsEmpty(console, "PATH");
  if (options.destination.empty()) return FailAsEmpty(console, "DEST");
  if (options.destination == "-") {
    return FailUsage(console, "`get` writes to files, not to the standard output",
                     "`virtdisk cat IMAGE PATH` does; ./- is a file of that name.");
  }
  ExtractionOutcome outcome;
  const auto image =
      OpenedImage::Open(console, options.image, {options.force, options.all}, outcome.status);
  if (!image) return outcome.status;
  const ImageTree tree = image->Tree(console);
  if (tree.IsDirectory(options.path)) {
    GetDirectory(console, *image, tree, options, outcome);
  } else {
    GetFile(console, *image, options, outcome);
  }
  if (options.json) console.out << OneLine(OutcomeRecord(console, options, outcome)) << "\n";
  return outcome.status;
}

}  // namespace quorbix::virtdisk::tool
