#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>
#include <quorbix/virtdisk/fat16_fs_image.h>

#include "browser/byte_source.h"
#include "browser/volume_index.h"
#include "builder/image_content.h"
#include "commands/auto_size.h"
#include "commands/build_output.h"
#include "commands/build_report.h"
#include "commands/commands.h"
#include "commands/shown_build.h"
#include "commands/shown_preview.h"
#include "disk/volume_view.h"
#include "fat16/fat16_image.h"
#include "fat16/full_disk.h"
#include "fat16/geometry.h"
#include "guard/host_view.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::size_t kShownOfAKind = 10;  // remarks

// With or without what it was full for.
bool IsDiskFull(std::string_view message) { return message.starts_with(internal::kDiskFull); }

std::string WhatTheFolderNeeds(const BuildPreview& preview) {
  const std::uint64_t size = AutoSize(preview);
  if (size == 0) return std::string("No image can hold the folder. ") + WhyNoSizeWillDo(preview);
  return "The folder needs an image of " + FormatBytes(size) + " (--size auto).";
}

std::string HintFor(const std::string& message, const BuildPreview& preview) {
  if (message == internal::kSizeTooLarge) {
    return "The largest image is one of --size " + std::to_string(kLargestImageMiB) + "M. " +
           WhatTheFolderNeeds(preview);
  }
  if (IsDiskFull(message)) return WhatTheFolderNeeds(preview);
  if (message == internal::kRootFull) {
    return "The root holds at most " + Count(internal::kMostRootEntries, "entry", "entries") +
           " beside the label, whatever the size; move some of the folder's entries into "
           "subfolders.";
  }
  if (message.starts_with(internal::kSizeTooSmall)) {
    return "Take a larger size, or --size auto to have it chosen.";
  }
  return {};
}

void WarnAboutSize(Console& console, const ImageFit& fit, std::uint64_t size) {
  if (fit.clusters == 0 || fit.isCommonlyRead) return;
  const std::string image = "an image of " + GroupDigits(size) + " bytes ";
  if (fit.clusters < internal::kFewestFat16Clusters) {
    Warn(console, image + "has " + Count(fit.clusters, "cluster", "clusters") + ", fewer than " +
                      GroupDigits(internal::kFewestFat16Clusters) +
                      ": other systems read it as FAT12. 3 MiB is enough.");
  } else {
    Warn(console, image +
                      "has a FAT too short for its clusters: other FAT tools refuse it. "
                      "Take a slightly different size.");
  }
}

void CountEntry(bool isDirectory, BuildReport& report) {
  (isDirectory ? report.directories : report.files) += 1;
}

// As it has become, not as it was foretold.
void DescribeImage(const internal::Fat16Image& image, BuildReport& report) {
  std::string err;
  internal::MemorySource source(image.Bytes());
  internal::VolumeIndex index(source);
  if (!index.Parse(err, internal::VolumeIndex::Hidden::kCollect)) return;
  for (const auto& record : index.Records()) CountEntry(record.IsDirectory(), report);
  for (const auto& hidden : index.HiddenEntries()) CountEntry(hidden.IsDirectory(), report);
  const VolumeView view(index.Info(), image.Bytes());
  report.bytes = image.Bytes().size();
  report.label = index.Info().volumeLabel;
  report.volumeId = view.VolumeId().value_or(0);
  report.clusterBytes = view.ClusterBytes();
  report.clusters = view.CountClusters();
}

// An image in memory, and what was said while it was filled.
struct FilledImage {
  internal::Fat16Image image;
  std::uint64_t size = 0;  // bytes asked for; 0: no size will do
  std::string message;     // why it failed, or a remark
  std::vector<std::string> skipped;
};

// What an image is made of.
struct BuildSource {
  Console& console;
  const BuildOptions& options;
  const BuildPreview& preview;
};

// "." and "..", which people type, are the folder's names for itself and not its own.
std::filesystem::path NamedFolder(const std::filesystem::path& folder) {
  const std::filesystem::path last = folder.filename();
  if (last != "." && last != "..") return folder;
  std::error_code unknown;
  const std::filesystem::path real = std::filesystem::canonical(folder, unknown);
  return unknown ? folder : real;
}

bool Fill(const BuildSource& source, FilledImage& filled) {
  filled.message.clear();
  filled.skipped.clear();
  const std::filesystem::path& folder = source.options.folder;
  const std::string label = source.options.label.value_or(internal::LabelFor(NamedFolder(folder)));
  return FillShown(source.console, filled.image, filled.size, label, folder,
                   source.preview.fileBytes, filled.message, filled.skipped);
}

// Files may have grown since they were looked at: a disk that turns out full is made again one size
// up.
bool FillAtAutoSize(const BuildSource& source, FilledImage& filled) {
  filled.size = AutoSize(source.preview);
  while (filled.size != 0) {
    if (Fill(source, filled)) return true;
    if (!IsDiskFull(filled.message)) return false;
    filled.size = AutoSize(source.preview, filled.size);
  }
  return false;
}

int FailToFill(Console& console, const BuildOptions& options, const BuildPreview& preview,
               const FilledImage& filled) {
  if (filled.size != 0) return Fail(console, filled.message, HintFor(filled.message, preview));
  return Fail(console, "no image can hold " + options.folder.string(), WhyNoSizeWillDo(preview));
}

int FailToWrite(Console& console, const ImageOutput& output, const BuildOptions& options,
                std::uint64_t bytes, const std::string& err) {
  return Fail(console, err,
              output.IsTouched() ? std::string("It ") + kHalfWritten + "."
                                 : "Nothing was written to " + options.image.string() + "." +
                                       output.OtherWay(bytes));
}

// Exchanges the arguments where they can only have been meant the other way round.
BuildOptions Straighten(Console& console, const BuildOptions& given) {
  BuildOptions options = given;
  if (!AreExchanged(given.folder, given.image)) return options;
  std::swap(options.folder, options.image);
  Remark(console, "the folder comes first: " + options.image.string() + " is built from " +
                      options.folder.string());
  return options;
}

void TellGroup(Console& console, const RemarkGroup& group, bool all) {
  Remark(console, group.title);
  const std::size_t shown = all ? group.lines.size() : std::min(group.lines.size(), kShownOfAKind);
  for (std::size_t i = 0; i < shown; ++i) {
    PrintToErr(console, "  " + Printable(group.lines[i]) + "\n");
  }
  const std::size_t more = group.lines.size() - shown;
  if (more == 0) return;
  PrintToErr(console, "  and " + GroupDigits(more) + " more; --verbose lists all\n");
}

void TellRemarks(Console& console, const BuildOptions& options, const BuildReport& report) {
  if (console.quiet) return;
  if (!report.remark.empty()) {
    const std::vector<std::string>& dropped = report.notes.dropped;
    const std::string remark = report.remark + ": " +
                               Count(dropped.size(), "empty file was", "empty files were") +
                               " left out of " + options.image.string();
    if (options.json || dropped.empty()) {
      Remark(console, remark);
    } else {
      TellGroup(console, {remark + ":", dropped}, options.verbose);
    }
  }
  if (options.json) return;
  for (const RemarkGroup& group : GroupRemarks(report.notes)) {
    TellGroup(console, group, options.verbose);
  }
}

int Tell(Console& console, const BuildOptions& options, const BuildReport& report) {
  if (options.json) {
    console.out << OneLine(ReportRecord(report)) << "\n";
  } else if (!console.quiet) {
    PrintToOut(console, FormatReport(report));
    console.out.flush();
  }
  TellRemarks(console, options, report);
  if (report.hasFolderChanged) {
    Remark(console, options.folder.string() + " has changed while it was copied");
  }
  const bool remarks =
      !report.notes.leftOut.empty() || !report.remark.empty() || report.hasFolderChanged;
  return options.strict && remarks ? kRemarks : kDone;
}

// Opens the output and looks at the folder. Returns kDone, or what the program is to end with.
int Prepare(Console& console, const BuildOptions& options, ImageOutput& output,
            BuildPreview& preview) {
  // Opened before it is looked at, and that before the folder is: what comes into its place later
  // is somebody's, and stays.
  std::string err;
  const bool isOpen = output.Open(options.image, options.inPlace, err);
  if (!IsOutputAcceptable(console, options)) return kRefused;
  if (!isOpen) {
    return Fail(console, err,
                "Does its folder exist, and may you write there?" + output.OtherWay(0));
  }
  if (!PreviewWithProgress(console, options.folder, preview, err)) {
    return Fail(console, err, "Give the path of an existing folder that you may open.");
  }
  return options.force || IsLeftAlone(console, options, preview) ? kDone : kRefused;
}

bool IsSameFolder(const std::optional<internal::guard::Stamp>& before,
                  const std::filesystem::path& folder) {
  const auto now = internal::guard::StampAt(folder);
  return before && now && before->identity == now->identity;
}

BuildReport ReportOf(const BuildSource& source, const FilledImage& filled) {
  BuildReport report;
  report.image = source.options.image;
  DescribeImage(filled.image, report);
  const ImageFit fit = FitIntoImage(source.preview, filled.size);
  report.hasFolderChanged = report.files + fit.dropped != source.preview.files ||
                            report.directories != source.preview.directories;
  report.notes = TakeNotes(source.preview, fit, filled.skipped);
  report.remark = filled.message;
  return report;
}

int Build(Console& console, const BuildOptions& options) {
  if (options.folder.empty() || options.image.empty()) {
    return FailUsage(console, "a path is empty", "virtdisk build FOLDER IMAGE");
  }
  if (options.image == "-") {
    return FailUsage(console, "an image cannot be written to the standard output",
                     "Give a file; ./- is one of that name.");
  }
  ImageOutput output;
  BuildPreview preview;
  const auto folder = internal::guard::StampAt(options.folder);
  const int status = Prepare(console, options, output, preview);
  if (status != kDone) return status;
  if (options.size) WarnAboutSize(console, FitIntoImage(preview, *options.size), *options.size);
  FilledImage filled;
  filled.size = options.size.value_or(0);
  const BuildSource source{console, options, preview};
  const bool done = options.size ? Fill(source, filled) : FillAtAutoSize(source, filled);
  if (!done) return FailToFill(console, options, preview, filled);
  // What is in the image then is what nobody could find any more: next to nothing.
  if (!IsSameFolder(folder, options.folder)) {
    return Fail(console, CannotList(options.folder, "it has gone while it was copied"),
                "Nothing was written to " + options.image.string() + ".");
  }
  if (std::string err; !WriteShown(console, filled.image, output, err)) {
    return FailToWrite(console, output, options, filled.image.Bytes().size(), err);
  }
  return Tell(console, options, ReportOf(source, filled));
}

}  // namespace

int RunBuild(Console& console, const BuildOptions& options) {
  return Build(console, Straighten(console, options));
}

}  // namespace quorbix::virtdisk::tool
