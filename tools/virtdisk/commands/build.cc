#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>
#include <quorbix/virtdisk/fat16_fs_image.h>
#include <quorbix/virtdisk/fat_image_builder.h>

#include "browser/file_source.h"
#include "browser/volume_description.h"
#include "commands/auto_size.h"
#include "commands/build_report.h"
#include "commands/commands.h"
#include "disk/volume_view.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint64_t kSectorBytes = 512;
// Below this count other systems take a volume for FAT12.
constexpr std::uint32_t kFewestFat16Clusters = 4085;
constexpr std::string_view kRootFull = "Root directory is full";
constexpr std::string_view kTooLarge = "Volume too large for FAT16 (max ~2 GB)";

// "Disk full", "Disk full while writing file", "Disk full, cannot extend directory"
bool IsDiskFull(std::string_view message) { return message.substr(0, 9) == "Disk full"; }

bool StartsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

std::string WhatTheFolderNeeds(const BuildPreview& preview) {
  const std::uint64_t size = AutoSize(preview);
  if (size == 0) return std::string("No image can hold the folder. ") + WhyNoSizeWillDo(preview);
  return "The folder needs an image of " + FormatBytes(size) + " (--size auto).";
}

std::string HintFor(const std::string& message, const BuildPreview& preview) {
  if (IsDiskFull(message) || message == kTooLarge) return WhatTheFolderNeeds(preview);
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

void WarnAboutSize(Console& console, const ImageFit& fit, std::uint64_t size) {
  if (fit.clusters == 0 || fit.isCommonlyRead) return;
  const std::string image = "an image of " + GroupDigits(size) + " bytes ";
  if (fit.clusters < kFewestFat16Clusters) {
    Warn(console, image + "has " + Count(fit.clusters, "cluster", "clusters") +
                      ", fewer than 4,085: other systems read it as FAT12. 3 MiB is enough.");
  } else {
    Warn(console, image +
                      "has a FAT too short for its clusters: other FAT tools refuse it. "
                      "Take a slightly different size.");
  }
}

// The beginning of an image, as far as the first cluster: enough to tell the volume and its FAT,
// and far less than the whole.
std::vector<std::uint8_t> ReadBeginning(const std::filesystem::path& image,
                                        const Fat16FsInfo& info) {
  std::vector<std::uint8_t> bytes(info.dataStartSector * kSectorBytes);
  std::ifstream in(image, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  return bytes;
}

void DescribeImage(const BuildOptions& options, BuildReport& report) {
  std::string err;
  Fat16FsInfo info;
  const auto source = internal::FileSource::Open(options.image, err);
  if (!source || !internal::DescribeVolume(*source, info, err)) return;
  const std::vector<std::uint8_t> beginning = ReadBeginning(options.image, info);
  const VolumeView view(info, beginning, report.bytes);
  report.label = info.volumeLabel;
  report.volumeId = view.VolumeId().value_or(0);
  report.clusterBytes = view.ClusterBytes();
  report.clusters = view.CountClusters();
}

struct BuildResult {
  bool done = false;
  std::uint64_t size = 0;  // bytes, of the last attempt
};

// Files may have grown since they were looked at: a disk that turns out full is built again one
// size up.
BuildResult BuildAtAutoSize(IFatImageBuilder& builder, const BuildOptions& options,
                            const BuildPreview& preview) {
  BuildResult result{.size = AutoSize(preview)};
  while (result.size != 0) {
    result.done = builder.Build(options.folder, options.image, result.size);
    if (result.done || !IsDiskFull(builder.LastError())) return result;
    result.size = AutoSize(preview, result.size);
  }
  return result;
}

// What a build leaves in the image, after it dropped the empty files that found no slot.
void CountEntries(const BuildPreview& preview, std::uint64_t dropped, BuildReport& report) {
  report.files = preview.files - std::min(preview.files, dropped);
  report.directories = preview.directories;
  report.renamed = FindRenamed(preview);
}

}  // namespace

int RunBuild(Console& console, const BuildOptions& options) {
  BuildPreview preview;
  std::string err;
  if (!PreviewBuild(options.folder, preview, err)) {
    return Fail(console, err, "Give the path of an existing folder that you may open.");
  }
  if (options.size) WarnAboutSize(console, FitIntoImage(preview, *options.size), *options.size);
  const std::unique_ptr<IFatImageBuilder> builder = CreateFat16Builder();
  const BuildResult built =
      options.size
          ? BuildResult{builder->Build(options.folder, options.image, *options.size), *options.size}
          : BuildAtAutoSize(*builder, options, preview);
  if (built.size == 0) {
    return Fail(console, "no image can hold " + options.folder.string(), WhyNoSizeWillDo(preview));
  }
  if (!built.done) {
    return Fail(console, builder->LastError(), HintFor(builder->LastError(), preview));
  }
  BuildReport report;
  report.image = options.image;
  report.bytes = built.size - built.size % kSectorBytes;
  CountEntries(preview, FitIntoImage(preview, built.size).dropped, report);
  report.skipped = builder->SkippedFiles();
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
