#include <algorithm>
#include <cstdio>
#include <string>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "commands/commands.h"
#include "disk/image_file.h"
#include "disk/image_tree.h"
#include "disk/volume_view.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

struct Totals {
  std::uint64_t files = 0;
  std::uint64_t directories = 0;
  std::uint64_t bytes = 0;
};

Totals CountEntries(const Fat16FsImage& image) {
  Totals totals;
  const ImageTree tree(image);
  for (const Fat16FsEntry& entry : tree.Entries()) {
    ++(entry.isDirectory ? totals.directories : totals.files);
    if (!entry.isDirectory) totals.bytes += entry.size;
  }
  return totals;
}

Json Record(const InfoOptions& options, const Fat16FsImage& image, const VolumeView& view,
            const Totals& totals) {
  const Fat16FsInfo& info = image.Info();
  const ClusterCounts clusters = view.CountClusters();
  const auto id = view.VolumeId();
  const Json partition = {{"type", info.partitionType},
                          {"startSector", info.partitionStartLba},
                          {"sectors", info.partitionSectorCount}};
  return {{"image", options.image.string()},
          {"bytes", image.ImageBytes().size()},
          {"partition", info.partitioned ? partition : Json(nullptr)},
          {"label", info.volumeLabel},
          {"volumeId", id ? Json(FormatVolumeId(*id)) : Json(nullptr)},
          {"fileSystemType", info.fileSystemType},
          {"sectorBytes", info.bytesPerSector},
          {"clusterBytes", view.ClusterBytes()},
          {"totalSectors", info.totalSectors},
          {"reservedSectors", info.reservedSectors},
          {"fats", info.fatCount},
          {"sectorsPerFat", info.sectorsPerFat},
          {"rootEntries", info.rootEntryCount},
          {"clusters", view.ClusterCount()},
          {"clustersUsed", clusters.used},
          {"clustersFree", clusters.free},
          {"clustersBad", clusters.bad},
          {"files", totals.files},
          {"directories", totals.directories},
          {"fileBytes", totals.bytes}};
}

std::string PartitionText(const Fat16FsInfo& info) {
  if (!info.partitioned) return "none: the volume begins with the image";
  char type[8];
  std::snprintf(type, sizeof type, "0x%02X", static_cast<unsigned>(info.partitionType));
  return std::string("type ") + type + ", sectors from " + GroupDigits(info.partitionStartLba) +
         ", " + GroupDigits(info.partitionSectorCount) + " of them";
}

std::string ClustersText(const VolumeView& view) {
  const ClusterCounts counts = view.CountClusters();
  std::string text = GroupDigits(view.ClusterCount()) + " of " + FormatBytes(view.ClusterBytes()) +
                     ": " + GroupDigits(counts.used) + " used, " + GroupDigits(counts.free) +
                     " free";
  if (counts.bad != 0) text += ", " + GroupDigits(counts.bad) + " marked bad";
  return text;
}

void PrintText(Console& console, const InfoOptions& options, const Fat16FsImage& image,
               const VolumeView& view, const Totals& totals) {
  const Fat16FsInfo& info = image.Info();
  const auto id = view.VolumeId();
  console.out << "image        " << Printable(options.image.string()) << ", "
              << GroupDigits(image.ImageBytes().size()) << " bytes\n"
              << "partition    " << PartitionText(info) << "\n"
              << "label        "
              << (info.volumeLabel.empty() ? "(none)" : Printable(info.volumeLabel)) << "\n"
              << "volume id    " << (id ? FormatVolumeId(*id) : "(none)") << "\n"
              << "file system  " << Printable(info.fileSystemType) << "\n"
              << "clusters     " << ClustersText(view) << "\n"
              << "FATs         " << unsigned{info.fatCount} << " of "
              << Count(info.sectorsPerFat, "sector", "sectors") << "\n"
              << "root         " << Count(info.rootEntryCount, "entry", "entries") << "\n"
              << "files        " << GroupDigits(totals.files) << ", "
              << Count(totals.bytes, "byte", "bytes") << "\n"
              << "directories  " << GroupDigits(totals.directories) << "\n";
}

}  // namespace

int RunInfo(Console& console, const InfoOptions& options) {
  Fat16FsImage image;
  if (!LoadImage(console, options.image, image)) return kFailed;
  const VolumeView view(image.Info(), image.ImageBytes());
  const Totals totals = CountEntries(image);
  if (options.json) {
    console.out << OneLine(Record(options, image, view, totals)) << "\n";
  } else {
    PrintText(console, options, image, view, totals);
  }
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
