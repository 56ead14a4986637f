#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>
#include <quorbix/virtdisk/fat_image_builder.h>

#include "commands/auto_build.h"
#include "commands/build_report.h"
#include "commands/commands.h"
#include "disk/volume_view.h"
#include "host/folder_survey.h"
#include "host/plan.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint64_t kSectorBytes = 512;
constexpr std::string_view kRootFull = "Root directory is full";
constexpr std::string_view kTooLarge = "Volume too large for FAT16 (max ~2 GB)";

bool StartsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

std::string WhatTheFolderNeeds(const FolderContent& content) {
  if (content.endless) {
    return "The folder needs more than " +
           FormatBytes(std::uint64_t{kMostClusters} * kLargestClusterBytes) +
           ", the most that an image can hold; do links in it lead back up?";
  }
  const std::uint64_t bytes = ClustersNeeded(content, kLargestClusterBytes) * kLargestClusterBytes;
  const std::optional<std::uint64_t> size = SmallestSize(content);
  if (size) return "The folder needs an image of " + FormatBytes(*size) + " (--size auto).";
  return "In clusters of 64 KiB the folder needs " + FormatBytes(bytes) +
         ", more than any image can hold; leave something out.";
}

std::string HintFor(const std::string& message, const FolderSurvey& survey) {
  if (IsDiskFull(message) || message == kTooLarge) {
    return WhatTheFolderNeeds(survey.content);
  }
  if (message == kRootFull) {
    return "The root holds at most 511 entries beside the label, whatever the size; move some of "
           "the folder's entries into subfolders.";
  }
  if (StartsWith(message, "Image too small")) {
    return "Take a larger size, or --size auto to have it chosen.";
  }
  if (StartsWith(message, "Source")) return "Give the path of an existing folder.";
  if (StartsWith(message, "Cannot open")) {
    return "Does its folder exist, and may you write there?";
  }
  if (StartsWith(message, "Write failed")) {
    return "The image is cut short. Make room on the host's disk and build again.";
  }
  return {};
}

void WarnAboutSize(Console& console, std::uint64_t size) {
  const std::optional<Geometry> geometry = GeometryFor(size);
  if (!geometry) return;
  const std::string image = "an image of " + GroupDigits(size) + " bytes ";
  if (geometry->clusters < kFewestFat16Clusters) {
    Warn(console, image + "has " + Count(geometry->clusters, "cluster", "clusters") +
                      ", fewer than 4,085: other systems read it as FAT12. 3 MiB is enough.");
  }
  if (FatIsTooShort(*geometry)) {
    Warn(console, image +
                      "has a FAT too short for its clusters: other FAT tools refuse it. "
                      "Take a slightly different size.");
  }
}

// The beginning of an image, as far as the first cluster: enough to tell the volume and its FAT,
// and far less than the whole.
std::vector<std::uint8_t> ReadBeginning(const BuildOptions& options, const Geometry& geometry) {
  std::vector<std::uint8_t> bytes(geometry.dataStartSector * kSectorBytes);
  std::ifstream in(options.image, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  return bytes;
}

void DescribeImage(const BuildOptions& options, BuildReport& report) {
  const std::optional<Geometry> geometry = GeometryFor(report.bytes);
  if (!geometry) return;
  const std::vector<std::uint8_t> beginning = ReadBeginning(options, *geometry);
  Fat16FsImage image;
  std::string ignored;
  // Fails as soon as a subdirectory is met, whose clusters are not there; the description of the
  // volume is complete by then.
  image.LoadFromBytes(beginning, ignored);
  const VolumeView view(image.Info(), beginning, report.bytes);
  report.label = image.Info().volumeLabel;
  report.volumeId = view.VolumeId().value_or(0);
  report.clusterBytes = view.ClusterBytes();
  report.clusters = view.CountClusters();
}

}  // namespace

int RunBuild(Console& console, const BuildOptions& options) {
  const FolderSurvey survey = SurveyFolder(options.folder);
  if (options.size) WarnAboutSize(console, *options.size);
  const std::unique_ptr<IFatImageBuilder> builder = CreateFat16Builder();
  const BuildResult built =
      options.size
          ? BuildResult{builder->Build(options.folder, options.image, *options.size), *options.size}
          : BuildAtSmallestSize(*builder, options.folder, options.image, survey.content);
  if (!built.done) {
    return Fail(console, builder->LastError(), HintFor(builder->LastError(), survey));
  }
  BuildReport report;
  report.image = options.image;
  report.bytes = built.size - built.size % kSectorBytes;
  report.files = survey.files;
  report.directories = survey.directories;
  report.skipped = builder->SkippedFiles();
  report.renamed = survey.renamed;
  report.remark = builder->LastError();
  DescribeImage(options, report);
  console.out << (options.json ? OneLine(ReportRecord(report)) + "\n" : FormatReport(report));
  if (!report.remark.empty()) {
    Remark(console, report.remark + ": an empty file was left out of " + options.image.string());
  }
  const bool remarks = !report.skipped.empty() || !report.remark.empty();
  return options.strict && remarks ? kRemarks : kDone;
}

}  // namespace quorbix::virtdisk::tool
