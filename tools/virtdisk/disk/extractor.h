#ifndef QUORBIX_VIRTDISK_TOOL_EXTRACTOR_H_
#define QUORBIX_VIRTDISK_TOOL_EXTRACTOR_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <unordered_set>
#include <vector>

#include "disk/extracted_file.h"
#include "disk/extraction.h"
#include "disk/opened_image.h"
#include "terminal/console.h"
#include "terminal/exit_status.h"
#include "terminal/failure_tally.h"
#include "terminal/progress.h"

namespace quorbix::virtdisk::tool {

struct ExtractionSettings {
  std::filesystem::path image;        // that is read, and never replaced
  std::filesystem::path destination;  // folder, for Run
  bool force = false;                 // replace files that exist
};

struct ExtractionOutcome {
  static constexpr char kExists[] = "a file of that name exists";

  struct Failure {
    std::string path;
    std::string reason;
  };

  int status = kDone;
  std::uint64_t files = 0;
  std::uint64_t directories = 0;
  std::uint64_t bytes = 0;
  std::vector<std::string> shortFiles;
  std::vector<Failure> failed;
};

// Copies entries of an image to the host, and tells the console of those that it cannot. A refused
// or failed one does not stop the others.
class Extractor {
 public:
  // `bytes` is what there is to copy in all. `theOutcome` is added to.
  Extractor(Console& theConsole, const OpenedImage& theImage, const ExtractionSettings& theSettings,
            std::uint64_t bytes, ExtractionOutcome& theOutcome);

  // Into the destination, which is made where there is none.
  void Run(const std::vector<ExtractionStep>& steps);

  // Copies one file, of which `target` says where. False: it exists, and nobody was told.
  bool CopyFile(const Fat16FsEntry& entry, const std::filesystem::path& target);

 private:
  bool MakeDestination();
  void Take(const ExtractionStep& step);
  void MakeFolder(const ExtractionStep& step, const std::filesystem::path& target);

  void Tell(const Fat16FsEntry& entry, const std::filesystem::path& target, ExtractionEnd end,
            std::uint64_t bytes, const std::string& err);
  void TellShort(const Fat16FsEntry& entry, std::uint64_t bytes);
  void FailOn(const Fat16FsEntry& entry, const std::string& err, const FailureSort& sort,
              const std::string& hint);
  void Refuse(const Fat16FsEntry& entry, const std::string& reason);

  Console& console;
  const OpenedImage& image;
  const ExtractionSettings settings;
  ExtractionOutcome& outcome;
  FailureTally failures;
  Progress progress;
  // Below the destination, made or found there. Nothing is written through anything else, so that
  // no symbolic link leads out of the destination.
  std::unordered_set<std::string> realFolders;
  std::unordered_set<std::string> unmadeFolders;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_EXTRACTOR_H_
