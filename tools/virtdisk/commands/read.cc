#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <unordered_set>
#include <vector>

#include "browser/content_reader.h"
#include "commands/commands.h"
#include "disk/extracted_file.h"
#include "disk/extraction.h"
#include "disk/image_file.h"
#include "disk/image_tree.h"
#include "disk/opened_image.h"
#include "terminal/exit_status.h"
#include "terminal/failure_tally.h"
#include "terminal/json.h"
#include "terminal/progress.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using internal::ContentReader;

constexpr char kImageItself[] = "it would take the place of the image that is read";
constexpr char kNoFolder[] = "a symbolic link or a file stands where a folder should be";
constexpr char kUnmadeFolder[] = "its folder could not be made";
constexpr char kExists[] = "a file of that name exists";
constexpr char kPartOnly[] = "what there is of it would replace what exists";

std::string HintFor(const std::string& message, const std::string& path, const fs::path& image) {
  const std::string what = Within(path, image);
  if (message == "file not found") {
    return what + ": `virtdisk find` and `virtdisk ls` show what there is.";
  }
  if (message == "path is a directory") {
    return what + ": `virtdisk ls` lists it, `virtdisk get` copies all of it.";
  }
  if (message.starts_with("image could not be read")) return what + " could not be read whole.";
  return what + ": the file's chain of clusters is damaged.";
}

constexpr char kShortHint[] = "Its chain of clusters ends early; `virtdisk verify` tells more.";

// Of a file that has fewer bytes than its entry says.
std::string ShortText(const Fat16FsEntry& entry, std::uint64_t got) {
  return entry.path + " has only " + GroupDigits(got) + " of its " +
         Count(entry.size, "byte", "bytes");
}

// Why `target` could not be written, without its path, from the message that has both.
std::string WriteReason(const std::string& message, const fs::path& target) {
  const std::string path = target.string() + ": ";
  const std::size_t at = message.find(path);
  return at == std::string::npos ? message : message.substr(at + path.size());
}

struct Failure {
  std::string path;
  std::string reason;
};

// What `get` did, for people as it happens and for programs at the end.
struct Outcome {
  int status = kDone;
  std::uint64_t files = 0;
  std::uint64_t directories = 0;
  std::uint64_t bytes = 0;
  std::vector<std::string> shortFiles;
  std::vector<Failure> failed;
};

// Copies the entries of a directory one after another. A refused or failed one does not stop the
// others.
class Extractor {
 public:
  Extractor(Console& theConsole, const OpenedImage& theImage, const GetOptions& theOptions,
            std::uint64_t bytes, Outcome& theOutcome)
      : console(theConsole),
        image(theImage),
        options(theOptions),
        outcome(theOutcome),
        failures(theConsole),
        progress(theConsole, "copying", bytes) {}

  void Run(const std::vector<ExtractionStep>& steps) {
    if (!MakeDestination()) return;
    for (const ExtractionStep& step : steps) Take(step);
    failures.TellRest();
  }

  // Copies one file, of which `target` says where. False: it exists, and nobody was told.
  bool CopyFile(const Fat16FsEntry& entry, const fs::path& target) {
    ContentReader content = image.Index().Open(entry.firstCluster, entry.size);
    std::string err;
    ExtractionEnd end = ExtractToNewFile(target, content, progress, err);
    if (end == ExtractionEnd::kExists && options.force) {
      if (IsSameFile(target, options.image)) {
        Refuse(entry, kImageItself);
        return true;
      }
      end = ExtractInPlaceOf(target, content, entry.size, progress, err);
    }
    if (end == ExtractionEnd::kExists) return false;
    Tell(entry, target, end, content.Total(), err);
    return true;
  }

 private:
  bool MakeDestination() {
    std::error_code failed;
    std::error_code unknown;
    fs::create_directories(options.destination, failed);
    if (fs::is_directory(options.destination, unknown)) return true;
    outcome.status = Fail(console,
                          "cannot make the folder " + options.destination.string() + ": " +
                              (failed ? failed.message() : "something else has that name"),
                          "Give the path of a folder, or of one that can be made.");
    return false;
  }

  void Take(const ExtractionStep& step) {
    if (step.refusal != nullptr) {
      Refuse(*step.entry, step.refusal);
      return;
    }
    const std::string parent = fs::path(step.target).parent_path().string();
    if (!parent.empty() && !realFolders.contains(parent)) {
      const bool isUnmade = unmadeFolders.contains(parent);
      if (isUnmade && step.entry->isDirectory) unmadeFolders.insert(step.target);
      Refuse(*step.entry, isUnmade ? kUnmadeFolder : kNoFolder);
      return;
    }
    const fs::path target = options.destination / step.target;
    if (step.entry->isDirectory) return MakeFolder(step, target);
    if (CopyFile(*step.entry, target)) return;
    Refuse(*step.entry, IsSameFile(target, options.image) ? kImageItself : kExists);
  }

  void MakeFolder(const ExtractionStep& step, const fs::path& target) {
    std::error_code failed;
    std::error_code unknown;
    fs::create_directory(target, failed);
    const fs::file_status status = fs::symlink_status(target, unknown);
    if (fs::is_directory(status)) {
      realFolders.insert(step.target);
      ++outcome.directories;
      return;
    }
    if (!fs::exists(status)) unmadeFolders.insert(step.target);
    Refuse(*step.entry, fs::exists(status) ? kNoFolder : failed.message());
  }

  void Tell(const Fat16FsEntry& entry, const fs::path& target, ExtractionEnd end,
            std::uint64_t bytes, const std::string& err) {
    switch (end) {
      case ExtractionEnd::kUnreadable:
        return FailOn(entry, err, {"could not read", err}, HintFor(err, entry.path, options.image));
      case ExtractionEnd::kUnwritable:
        return FailOn(entry, err, {"could not write", WriteReason(err, target)},
                      "Not copied: " + entry.path);
      case ExtractionEnd::kShort:
        TellShort(entry, bytes);
        return Refuse(entry, kPartOnly);
      default:
        ++outcome.files;
        outcome.bytes += bytes;
        if (bytes != entry.size) TellShort(entry, bytes);
    }
  }

  void TellShort(const Fat16FsEntry& entry, std::uint64_t bytes) {
    outcome.shortFiles.push_back(entry.path);
    outcome.status = kFailed;
    failures.Tell({"only a part is there of", "their chains of clusters end early"},
                  ShortText(entry, bytes), kShortHint);
  }

  void FailOn(const Fat16FsEntry& entry, const std::string& err, const FailureSort& sort,
              const std::string& hint) {
    outcome.failed.push_back({entry.path, err});
    outcome.status = kFailed;
    failures.Tell(sort, err, hint);
  }

  void Refuse(const Fat16FsEntry& entry, const std::string& reason) {
    outcome.failed.push_back({entry.path, reason});
    outcome.status = kFailed;
    failures.Tell({"refused to extract", reason},
                  "refused to extract " + entry.path + ": " + reason,
                  reason == kExists ? "--force replaces it." : "What is not refused is extracted.");
  }

  Console& console;
  const OpenedImage& image;
  const GetOptions& options;
  Outcome& outcome;
  FailureTally failures;
  Progress progress;
  // Below the destination, made or found there. Nothing is written through anything else, so that
  // no symbolic link leads out of the destination.
  std::unordered_set<std::string> realFolders;
  std::unordered_set<std::string> unmadeFolders;
};

int RefuseFile(Console& console, const std::string& message, const char* hint) {
  Fail(console, message, hint);
  return kRefused;
}

// The file at `path` in the form in which listings show it. Without one the console is told.
std::optional<Fat16FsEntry> FindFile(Console& console, const OpenedImage& image,
                                     const std::string& path, const fs::path& imagePath,
                                     bool hiddenToo) {
  std::string err;
  const internal::EntryRecord* record = image.Index().FindFile(path, err);
  if (record != nullptr) return record->Entry(image.Index().PathOf(*record));
  if (hiddenToo) {
    const ImageTree tree(image.Index());
    const Fat16FsEntry* entry = tree.Find(path);
    if (entry != nullptr && !entry->isDirectory) return *entry;
  }
  Fail(console, err, HintFor(err, path, imagePath));
  return std::nullopt;
}

void GetFile(Console& console, const OpenedImage& image, const GetOptions& options,
             Outcome& outcome) {
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
  if (IsSameFile(target, options.image)) {
    outcome.status = RefuseFile(
        console, options.path + " would take the image's place: " + options.image.string(),
        "Give another destination.");
    return;
  }
  outcome.status = kDone;
  if (Extractor(console, image, options, entry->size, outcome).CopyFile(*entry, target)) return;
  outcome.failed.push_back({entry->path, kExists});
  outcome.status =
      RefuseFile(console, target.string() + " exists", "--force replaces it; nothing was written.");
}

void GetDirectory(Console& console, const OpenedImage& image, const ImageTree& tree,
                  const GetOptions& options, Outcome& outcome) {
  const std::vector<const Fat16FsEntry*> entries = tree.Below(options.path);
  std::uint64_t bytes = 0;
  for (const Fat16FsEntry* entry : entries) bytes += entry->isDirectory ? 0 : entry->size;
  Extractor(console, image, options, bytes, outcome).Run(PlanExtraction(entries, options.path));
  if (options.all && !image.Index().HasAllHiddenEntries()) {
    outcome.status = Fail(console, "not all hidden entries could be read",
                          "The directories are damaged; `virtdisk verify` tells more.");
  }
}

Json OutcomeRecord(const Console& console, const GetOptions& options, const Outcome& outcome) {
  Json failed = Json::array();
  for (const Failure& failure : outcome.failed) {
    failed.push_back({{"path", failure.path}, {"reason", failure.reason}});
  }
  return {{"image", options.image.string()},
          {"path", options.path},
          {"destination", options.destination.string()},
          {"files", outcome.files},
          {"directories", outcome.directories},
          {"bytes", outcome.bytes},
          {"short", outcome.shortFiles},
          {"failed", failed},
          {"error", console.error.empty() ? Json() : Json(console.error)},
          {"hint", console.errorHint.empty() ? Json() : Json(console.errorHint)}};
}

void PrintContent(const Console& console, const Fat16FsEntry& entry,
                  std::span<const std::uint8_t> content) {
  Json record = EntryRecord(entry);
  record["bytes"] = content.size();
  record["contentBase64"] = Base64(content);
  record["error"] = console.error.empty() ? Json() : Json(console.error);
  record["hint"] = console.errorHint.empty() ? Json() : Json(console.errorHint);
  console.out << OneLine(record) << "\n";
}

}  // namespace

int RunCat(Console& console, const CatOptions& options) {
  int status = kDone;
  const auto image = OpenedImage::Open(console, options.image, {.force = options.force}, status);
  if (!image) return status;
  const auto entry = FindFile(console, *image, options.path, options.image, false);
  if (!entry) return kFailed;
  ContentReader content = image->Index().Open(entry->firstCluster, entry->size);
  std::optional<Progress> progress;
  // Among the content itself the line would be in the way.
  if (!console.outIsTerminal) progress.emplace(console, "reading " + entry->name, entry->size);
  std::vector<std::uint8_t> all;  // for JSON
  std::string err;
  std::span<const std::uint8_t> piece;
  do {
    if (!content.Next(piece, err)) {
      return Fail(console, err, HintFor(err, options.path, options.image));
    }
    if (progress) progress->Add(piece.size());
    if (options.json) {
      all.insert(all.end(), piece.begin(), piece.end());
    } else {
      console.out.write(reinterpret_cast<const char*>(piece.data()),
                        static_cast<std::streamsize>(piece.size()));
    }
  } while (!piece.empty() && console.out);
  const bool isShort = content.Total() != entry->size;
  if (isShort) Fail(console, ShortText(*entry, content.Total()), kShortHint);
  if (options.json) PrintContent(console, *entry, all);
  return isShort ? kFailed : kDone;
}

int RunGet(Console& console, const GetOptions& options) {
  Outcome outcome;
  const auto image =
      OpenedImage::Open(console, options.image, {options.force, options.all}, outcome.status);
  if (!image) return outcome.status;
  const ImageTree tree(image->Index());
  if (tree.IsDirectory(options.path)) {
    GetDirectory(console, *image, tree, options, outcome);
  } else {
    GetFile(console, *image, options, outcome);
  }
  if (options.json) console.out << OneLine(OutcomeRecord(console, options, outcome)) << "\n";
  return outcome.status;
}

}  // namespace quorbix::virtdisk::tool
