#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <quorbix/virtdisk/build_preview.h>
#include <quorbix/virtdisk/fat_image_builder.h>

#include "commands/auto_size.h"
#include "commands/commands.h"
#include "commands/shown_preview.h"
#include "terminal/columns.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint64_t kMiB = 1048576;
constexpr std::uint64_t kGiB = 1024 * kMiB;

struct SizeRow {
  std::uint64_t bytes = 0;
  ImageFit fit;
};

// The smallest size that will do, the doublings above it, and the largest size of all.
std::vector<SizeRow> SizesThatWillDo(const BuildPreview& preview, std::uint64_t smallest) {
  if (smallest == 0) return {};
  std::set<std::uint64_t> sizes{smallest, kLargestImageMiB * kMiB};
  for (std::uint64_t mebi = 4; mebi <= kLargestImageMiB; mebi *= 2) sizes.insert(mebi * kMiB);
  std::vector<SizeRow> rows;
  for (auto size = sizes.find(smallest); size != sizes.end(); ++size) {
    const ImageFit fit = FitIntoImage(preview, *size);
    if (fit.builds && fit.isCommonlyRead) rows.push_back({*size, fit});
  }
  return rows;
}

// As --size takes it: all of these are whole MiB.
std::string SizeText(std::uint64_t bytes) {
  const bool isWhole = bytes < kGiB || bytes % kGiB == 0;
  return isWhole ? FormatBytes(bytes) : GroupDigits(bytes / kMiB) + " MiB";
}

// The numbers of clusters are left out where they do not fit in.
class SizeTable {
 public:
  explicit SizeTable(unsigned columns) : withNumbers(columns >= 51) {}

  void Add(const std::string& size, const std::string& cluster, const std::string& clusters,
           const std::string& needed, const std::string& free) {
    text += AlignRight(size, 9) + AlignRight(cluster, 13);
    if (withNumbers) text += AlignRight(clusters, 10) + AlignRight(needed, 8);
    text += AlignRight(free, 12) + "\n";
  }

  const std::string& Text() const { return text; }

 private:
  const bool withNumbers;
  std::string text;
};

std::string FormatTable(const std::vector<SizeRow>& rows, unsigned columns) {
  if (rows.empty()) return {};
  SizeTable table(columns);
  table.Add("image", "clusters of", "clusters", "needed", "free");
  for (const SizeRow& row : rows) {
    const std::uint64_t free = (row.fit.clusters - row.fit.clustersNeeded) * row.fit.clusterBytes;
    table.Add(SizeText(row.bytes), FormatBytes(row.fit.clusterBytes), GroupDigits(row.fit.clusters),
              GroupDigits(row.fit.clustersNeeded), FormatBytes(free));
  }
  return "\n" + table.Text();
}

Json SizeRecords(const std::vector<SizeRow>& rows) {
  Json records = Json::array();
  for (const SizeRow& row : rows) {
    records.push_back({{"bytes", row.bytes},
                       {"clusterBytes", row.fit.clusterBytes},
                       {"clusters", row.fit.clusters},
                       {"clustersNeeded", row.fit.clustersNeeded}});
  }
  return records;
}

std::string FormatMeasure(const BuildPreview& preview, std::uint64_t dropped,
                          std::uint64_t smallest) {
  std::string text = "files        " + GroupDigits(preview.files - dropped) + "\n" +
                     "directories  " + GroupDigits(preview.directories) + "\n";
  const std::uint64_t leftOut = preview.leftOut + dropped;
  if (leftOut != 0) text += "left out     " + GroupDigits(leftOut) + "\n";
  text += "content      " + GroupDigits(preview.fileBytes) + " bytes\n";
  return text + "auto size    " + (smallest == 0 ? "(none)" : FormatBytes(smallest)) + "\n";
}

}  // namespace

int RunMeasure(Console& console, const MeasureOptions& options) {
  BuildPreview preview;
  std::string err;
  if (!PreviewWithProgress(console, options.folder, preview, err)) {
    return Fail(console, err, "Give the path of an existing folder that you may open.");
  }
  const std::uint64_t bytes = CreateFat16Builder()->MeasureFolderSize(options.folder);
  const std::uint64_t smallest = AutoSize(preview);
  const std::uint64_t dropped = smallest == 0 ? 0 : FitIntoImage(preview, smallest).dropped;
  const std::vector<SizeRow> rows = SizesThatWillDo(preview, smallest);
  if (options.json) {
    console.out << OneLine({{"folder", options.folder.string()},
                            {"bytes", bytes},
                            {"copiedBytes", preview.fileBytes},
                            {"autoSize", smallest == 0 ? Json(nullptr) : Json(smallest)},
                            {"files", preview.files - dropped},
                            {"directories", preview.directories},
                            {"leftOut", preview.leftOut},
                            {"dropped", dropped},
                            {"sizes", SizeRecords(rows)}})
                << "\n";
  } else {
    PrintToOut(console,
               FormatMeasure(preview, dropped, smallest) + FormatTable(rows, console.width));
  }
  if (smallest == 0) {
    Warn(console,
         "no FAT16 image can hold " + options.folder.string() + ". " + WhyNoSizeWillDo(preview));
  }
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
