#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "check/partitions.h"
#include "check/volume_claim.h"
#include "commands/commands.h"
#include "commands/info_fat32.h"
#include "disk/fat32_volume.h"
#include "disk/image_tree.h"
#include "disk/map.h"
#include "disk/opened_image.h"
#include "disk/volume_view.h"
#include "fat16/geometry.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

using internal::VolumeClaim;

struct Totals {
  std::uint64_t files = 0;
  std::uint64_t directories = 0;
  std::uint64_t bytes = 0;
};

// How the clusters of a disk lie.
struct Layout {
  std::uint64_t fragmented = 0;  // files and directories in several parts
  std::uint64_t parts = 0;       // of those
  std::uint64_t owners = 0;      // files and directories with clusters
  std::uint64_t largestGap = 0;  // free clusters side by side
  std::uint64_t slackBytes = 0;
};

struct Summary {
  Totals listed;
  Totals hidden;
  Layout layout;
  ClusterCounts clusters;
  VolumeClaim claim{};
  std::vector<internal::Partition> otherPartitions;
};

void CountEntries(const ImageTree& tree, Summary& summary) {
  for (const Fat16FsEntry& entry : tree.Entries()) {
    Totals& totals = tree.IsHidden(entry) ? summary.hidden : summary.listed;
    ++(entry.isDirectory ? totals.directories : totals.files);
    if (!entry.isDirectory) totals.bytes += entry.size;
  }
}

Layout LayoutOf(const DiskMap& map) {
  Layout layout;
  for (const Owner& owner : map.owners) {
    ++layout.owners;
    if (owner.runs.size() < 2) continue;
    ++layout.fragmented;
    layout.parts += owner.runs.size();
  }
  std::uint64_t gap = 0;
  for (const ClusterUse& use : map.clusters) {
    gap = use.area == Area::kFree ? gap + 1 : 0;
    layout.largestGap = std::max(layout.largestGap, gap);
  }
  layout.slackBytes = SlackBytes(map);
  return layout;
}

Summary Summarize(Console& console, const OpenedImage& image, const VolumeView& view) {
  Summary summary;
  const ImageTree tree = image.Tree(console);
  CountEntries(tree, summary);
  summary.layout = LayoutOf(MapVolume(view, tree));
  summary.clusters = view.CountClusters();
  summary.claim = internal::ClaimOf(image.Info());
  return summary;
}

const char* ClaimName(VolumeClaim claim) {
  switch (claim) {
    case VolumeClaim::kFat16:
      return "FAT16";
    case VolumeClaim::kSmallFat16:
      return "small FAT16";
    case VolumeClaim::kFat12:
    case VolumeClaim::kTooFew:
      return "FAT12";
    case VolumeClaim::kFat32:
      return "FAT32";
  }
  return "";
}

// What somebody should know who takes the volume for FAT16; empty for nothing.
std::string Note(VolumeClaim claim, std::uint64_t clusters) {
  switch (claim) {
    case VolumeClaim::kFat16:
      return {};
    case VolumeClaim::kSmallFat16:
      return "with fewer than " + GroupDigits(internal::kFewestFat16Clusters) + " clusters (" +
             GroupDigits(clusters) + "), other systems take the volume for FAT12";
    case VolumeClaim::kFat12:
      return "the volume says FAT12; read as FAT16, its files are wrong";
    case VolumeClaim::kFat32:
      return "the volume says FAT32; read as FAT16, its files are wrong";
    case VolumeClaim::kTooFew:
      return "with " + Count(clusters, "cluster", "clusters") +
             " the volume is FAT12; read as FAT16, its files are wrong";
  }
  return {};
}

// Of a volume that would be misread there are as many as its boot sector says.
std::uint64_t Clusters(const OpenedImage& image, const VolumeView& view, const Summary& summary) {
  return internal::WouldBeMisread(summary.claim) ? internal::ClaimedClusters(image.Info())
                                                 : view.ClusterCount();
}

Json PartitionRecords(const std::vector<internal::Partition>& partitions) {
  Json records = Json::array();
  for (const internal::Partition& one : partitions) {
    records.push_back(
        {{"type", one.type}, {"startSector", one.start}, {"sectors", one.end - one.start}});
  }
  return records;
}

Json Record(const InfoOptions& options, const OpenedImage& image, const VolumeView& view,
            const Summary& summary) {
  const Fat16FsInfo& info = image.Info();
  const auto id = view.VolumeId();
  const Json partition = {{"type", info.partitionType},
                          {"startSector", info.partitionStartLba},
                          {"sectors", info.partitionSectorCount}};
  Json record{{"image", options.image.string()},
              {"bytes", image.Bytes()},
              {"partition", info.partitioned ? partition : Json(nullptr)},
              {"otherPartitions", PartitionRecords(summary.otherPartitions)},
              {"label", info.volumeLabel},
              {"volumeId", id ? Json(FormatVolumeId(*id)) : Json(nullptr)},
              {"fileSystemType", info.fileSystemType},
              {"takenFor", ClaimName(summary.claim)},
              {"sectorBytes", info.bytesPerSector},
              {"clusterBytes", view.ClusterBytes()},
              {"totalSectors", info.totalSectors},
              {"reservedSectors", info.reservedSectors},
              {"fats", info.fatCount},
              {"sectorsPerFat", info.sectorsPerFat},
              {"rootEntries", info.rootEntryCount},
              {"clusters", Clusters(image, view, summary)},
              {"clustersUsed", summary.clusters.used},
              {"clustersFree", summary.clusters.free},
              {"clustersBad", summary.clusters.bad},
              {"largestFreeRun", summary.layout.largestGap},
              {"fragmented", summary.layout.fragmented},
              {"fragments", summary.layout.parts},
              {"slackBytes", summary.layout.slackBytes},
              {"files", summary.listed.files},
              {"directories", summary.listed.directories},
              {"fileBytes", summary.listed.bytes},
              {"hiddenFiles", summary.hidden.files},
              {"hiddenDirectories", summary.hidden.directories},
              {"hiddenBytes", summary.hidden.bytes}};
  if (internal::WouldBeMisread(summary.claim)) {
    ForgetContent(record);
    record["clustersUsed"] = record["clustersFree"] = nullptr;
  }
  return record;
}

std::string PartitionText(const Fat16FsInfo& info) {
  if (!info.partitioned) return "none: the volume begins with the image";
  return PartitionPlace(info.partitionType, info.partitionStartLba, info.partitionSectorCount);
}

std::string ClustersText(const OpenedImage& image, const VolumeView& view, const Summary& summary) {
  const ClusterCounts& counts = summary.clusters;
  std::string text =
      GroupDigits(Clusters(image, view, summary)) + " of " + FormatBytes(view.ClusterBytes());
  if (internal::WouldBeMisread(summary.claim)) return text;
  text += ": " + GroupDigits(counts.used) + " used, " + GroupDigits(counts.free) + " free";
  if (counts.bad != 0) text += ", " + GroupDigits(counts.bad) + " marked bad";
  return text;
}

std::string FullText(const VolumeView& view, const Summary& summary) {
  const std::uint64_t clusters = view.ClusterCount();
  if (clusters == 0) return "(no clusters)";
  const std::uint64_t used = summary.clusters.used;
  std::string percent = std::to_string(used * 100 / clusters);
  if (used != 0 && used * 100 < clusters) percent = "less than 1";
  return percent + " %, " + FormatBytes(used * view.ClusterBytes()) + " of " +
         FormatBytes(clusters * view.ClusterBytes()) + "; largest free run " +
         FormatBytes(summary.layout.largestGap * view.ClusterBytes());
}

std::string FragmentsText(const Layout& layout) {
  if (layout.fragmented == 0) return "none: everything lies in one part";
  return GroupDigits(layout.fragmented) + " of " + GroupDigits(layout.owners) +
         " files and directories lie in several parts, " + GroupDigits(layout.parts) +
         " of them in all";
}

std::string HiddenText(const Totals& hidden) {
  return Count(hidden.files, "file", "files") + " and " +
         Count(hidden.directories, "directory", "directories") + ", " +
         Count(hidden.bytes, "byte", "bytes") + ", that only `ls --all` lists";
}

std::string EntriesText(const Summary& summary) {
  std::string text = "files        " + GroupDigits(summary.listed.files) + ", " +
                     Count(summary.listed.bytes, "byte", "bytes") + "\n" + "directories  " +
                     GroupDigits(summary.listed.directories) + "\n";
  const bool hasHidden = summary.hidden.files + summary.hidden.directories > 0;
  return hasHidden ? text + "hidden       " + HiddenText(summary.hidden) + "\n" : text;
}

std::string OtherPartitionsText(const std::vector<internal::Partition>& partitions) {
  std::string types;
  for (const internal::Partition& one : partitions) {
    types += ", type " + FormatPartitionType(one.type);
  }
  return (partitions.size() == 1 ? "another partition is" : "other partitions are") +
         std::string(" not looked into: ") + types.substr(2);
}

std::string Text(const InfoOptions& options, const OpenedImage& image, const VolumeView& view,
                 const Summary& summary) {
  const Fat16FsInfo& info = image.Info();
  const auto id = view.VolumeId();
  const bool isMisread = internal::WouldBeMisread(summary.claim);
  std::ostringstream text;
  text << "image        " << Printable(options.image.string()) << ", " << GroupDigits(image.Bytes())
       << " bytes\n"
       << "partition    " << PartitionText(info) << "\n"
       << "label        " << (info.volumeLabel.empty() ? "(none)" : Printable(info.volumeLabel))
       << "\n"
       << "volume id    " << (id ? FormatVolumeId(*id) : "(none)") << "\n"
       << "file system  " << Printable(info.fileSystemType) << "\n"
       << "clusters     " << ClustersText(image, view, summary) << "\n";
  if (!isMisread) {
    text << "full         " << FullText(view, summary) << "\n"
         << "fragments    " << FragmentsText(summary.layout) << "\n";
  }
  text << "FATs         " << unsigned{info.fatCount} << " of "
       << Count(info.sectorsPerFat, "sector", "sectors") << "\n"
       << "root         " << Count(info.rootEntryCount, "entry", "entries") << "\n";
  if (!isMisread) text << EntriesText(summary);
  const std::string note = Note(summary.claim, internal::ClaimedClusters(info));
  if (!note.empty()) text << "note         " << note << "\n";
  if (!summary.otherPartitions.empty()) {
    text << "note         " << OtherPartitionsText(summary.otherPartitions) << "\n";
  }
  return text.str();
}

}  // namespace

int RunInfo(Console& console, const InfoOptions& options) {
  const auto source = OpenSource(console, options.image);
  if (!source) return kFailed;
  if (const auto fat32 = FindFat32(*source)) {
    return TellFat32(console, options, source->Size(), *fat32);
  }
  int status = kDone;
  const auto image = OpenedImage::Open(console, options.image, {true, true}, status);
  if (!image) return status;
  image->TellHiddenLeftOut(console);
  std::string err;
  const auto view = VolumeView::Read(image->Info(), image->Source(), err);
  if (!view) return Fail(console, err, "Nothing was told of " + options.image.string() + ".");
  Summary summary = Summarize(console, *image, *view);
  if (image->Info().partitioned &&
      !FindOtherPartitions(image->Source(), image->Info(), summary.otherPartitions, err)) {
    return Fail(console, err, "Nothing was told of " + options.image.string() + ".");
  }
  if (options.json) {
    Json record = Record(options, *image, *view, summary);
    AddError(console, record);
    console.out << OneLine(record) << "\n";
  } else {
    PrintToOut(console, Text(options, *image, *view, summary));
  }
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
