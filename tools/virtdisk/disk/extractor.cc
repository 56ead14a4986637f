#include "disk/extractor.h"

#include <cstddef>
#include <string>
#include <system_error>

#include "browser/content_reader.h"
#include "disk/file_lookup.h"
#include "host/output_place.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kImageItself[] = "it would take the place of the image that is read";
constexpr char kNoFolder[] = "a symbolic link or a file stands where a folder should be";
constexpr char kUnmadeFolder[] = "its folder could not be made";
constexpr char kPartOnly[] = "what there is of it would replace what exists";

// Why `target` could not be written, without its path, from the message that has both.
std::string WriteReason(const std::string& message, const fs::path& target) {
  const std::string path = target.string() + ": ";
  const std::size_t at = message.find(path);
  return at == std::string::npos ? message : message.substr(at + path.size());
}

}  // namespace

Extractor::Extractor(Console& theConsole, const OpenedImage& theImage,
                     const ExtractionSettings& theSettings, std::uint64_t bytes,
                     ExtractionOutcome& theOutcome)
    : console(theConsole),
      image(theImage),
      settings(theSettings),
      outcome(theOutcome),
      failures(theConsole),
      progress(theConsole, "copying", bytes) {}

void Extractor::Run(const std::vector<ExtractionStep>& steps) {
  if (!MakeDestination()) return;
  for (const ExtractionStep& step : steps) Take(step);
  failures.TellRest();
}

bool Extractor::CopyFile(const Fat16FsEntry& entry, const fs::path& target) {
  internal::ContentReader content = image.Index().Open(entry.firstCluster, entry.size);
  std::string err;
  ExtractionEnd end = ExtractToNewFile(target, content, progress, err);
  if (end == ExtractionEnd::kExists && settings.force) {
    if (IsSameFile(target, settings.image)) {
      Refuse(entry, kImageItself);
      return true;
    }
    end = ExtractInPlaceOf(target, content, entry.size, progress, err);
  }
  if (end == ExtractionEnd::kExists) return false;
  Tell(entry, target, end, content.Total(), err);
  return true;
}

bool Extractor::MakeDestination() {
  std::error_code failed;
  std::error_code unknown;
  fs::create_directories(settings.destination, failed);
  if (fs::is_directory(settings.destination, unknown)) return true;
  outcome.status = Fail(console,
                        "cannot make the folder " + settings.destination.string() + ": " +
                            (failed ? failed.message() : "something else has that name"),
                        "Give the path of a folder, or of one that can be made.");
  return false;
}

void Extractor::Take(const ExtractionStep& step) {
  if (step.refusal != nullptr) {
    Refuse(*step.entry, step.refusal);
    return;
  }
  const std::size_t end = step.target.rfind('/');
  const std::string parent = end == std::string::npos ? "" : step.target.substr(0, end);
  if (!parent.empty() && !realFolders.contains(parent)) {
    const bool isUnmade = unmadeFolders.contains(parent);
    if (isUnmade && step.entry->isDirectory) unmadeFolders.insert(step.target);
    Refuse(*step.entry, isUnmade ? kUnmadeFolder : kNoFolder);
    return;
  }
  const fs::path target = settings.destination / step.target;
  if (step.entry->isDirectory) return MakeFolder(step, target);
  if (CopyFile(*step.entry, target)) return;
  Refuse(*step.entry,
         IsSameFile(target, settings.image) ? kImageItself : ExtractionOutcome::kExists);
}

void Extractor::MakeFolder(const ExtractionStep& step, const fs::path& target) {
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

void Extractor::Tell(const Fat16FsEntry& entry, const fs::path& target, ExtractionEnd end,
                     std::uint64_t bytes, const std::string& err) {
  switch (end) {
    case ExtractionEnd::kUnreadable:
      return FailOn(entry, err, {"could not read", err}, HintFor(err, entry.path, settings.image));
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

void Extractor::TellShort(const Fat16FsEntry& entry, std::uint64_t bytes) {
  outcome.shortFiles.push_back(entry.path);
  outcome.status = kFailed;
  failures.Tell({"only a part is there of", "their chains of clusters end early"},
                ShortText(entry, bytes), kShortHint);
}

void Extractor::FailOn(const Fat16FsEntry& entry, const std::string& err, const FailureSort& sort,
                       const std::string& hint) {
  outcome.failed.push_back({entry.path, err});
  outcome.status = kFailed;
  failures.Tell(sort, err, hint);
}

void Extractor::Refuse(const Fat16FsEntry& entry, const std::string& reason) {
  outcome.failed.push_back({entry.path, reason});
  outcome.status = kFailed;
  failures.Tell({"refused to extract", reason}, "refused to extract " + entry.path + ": " + reason,
                reason == ExtractionOutcome::kExists ? "--force replaces it."
                                                     : "What is not refused is extracted.");
}

}  // namespace quorbix::virtdisk::tool
