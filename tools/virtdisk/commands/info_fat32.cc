#include "commands/info_fat32.h"

#include <sstream>
#include <string>

#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

std::uint64_t UsedClusters(const Fat32Volume& volume) {
  return volume.Clusters() - volume.freeClusters.value_or(0);
}

Json Fat32Record(const InfoOptions& options, std::uint64_t imageBytes, const Fat32Volume& volume) {
  Json record{{"image", options.image.string()}, {"bytes", imageBytes}, {"partition", nullptr}};
  if (const auto& partition = volume.partition) {
    record["partition"] = {{"type", partition->type},
                           {"startSector", partition->startSector},
                           {"sectors", partition->sectors}};
  }
  const bool isCounted = volume.freeClusters.has_value();
  record["otherPartitions"] = nullptr;
  record["label"] = volume.label;
  record["volumeId"] = volume.volumeId ? Json(FormatVolumeId(*volume.volumeId)) : Json();
  record["fileSystemType"] = volume.fileSystemType;
  record["takenFor"] = "FAT32";
  record["sectorBytes"] = volume.sectorBytes;
  record["clusterBytes"] = volume.ClusterBytes();
  record["totalSectors"] = volume.totalSectors;
  record["reservedSectors"] = volume.reservedSectors;
  record["fats"] = volume.fats;
  record["sectorsPerFat"] = volume.sectorsPerFat;
  record["rootEntries"] = nullptr;
  record["clusters"] = volume.Clusters();
  record["clustersUsed"] = isCounted ? Json(UsedClusters(volume)) : Json();
  record["clustersFree"] = isCounted ? Json(*volume.freeClusters) : Json();
  ForgetContent(record);
  return record;
}

std::string Fat32Clusters(const Fat32Volume& volume) {
  std::string text = GroupDigits(volume.Clusters()) + " of " + FormatBytes(volume.ClusterBytes());
  if (!volume.freeClusters) return text;
  return text + ": " + GroupDigits(UsedClusters(volume)) + " used, " +
         GroupDigits(*volume.freeClusters) + " free, as they were counted last";
}

std::string Fat32Text(const InfoOptions& options, std::uint64_t imageBytes,
                      const Fat32Volume& volume) {
  const auto& partition = volume.partition;
  std::ostringstream text;
  text << "image        " << Printable(options.image.string()) << ", " << GroupDigits(imageBytes)
       << " bytes\n"
       << "partition    "
       << (partition ? PartitionPlace(partition->type, partition->startSector, partition->sectors)
                     : "none: the volume begins with the image")
       << "\n"
       << "label        " << (volume.label.empty() ? "(none)" : Printable(volume.label)) << "\n"
       << "volume id    " << (volume.volumeId ? FormatVolumeId(*volume.volumeId) : "(none)") << "\n"
       << "file system  " << Printable(volume.fileSystemType) << "\n"
       << "sectors      " << GroupDigits(volume.totalSectors) << " of "
       << FormatBytes(volume.sectorBytes) << "\n"
       << "clusters     " << Fat32Clusters(volume) << "\n"
       << "FATs         " << volume.fats << " of "
       << Count(volume.sectorsPerFat, "sector", "sectors") << "\n"
       << "note         the volume is FAT32, and virtdisk looks into FAT16 only; mtools and 7-Zip "
          "read others\n";
  return text.str();
}

}  // namespace

int TellFat32(Console& console, const InfoOptions& options, std::uint64_t imageBytes,
              const Fat32Volume& volume) {
  if (options.json) {
    console.out << OneLine(Fat32Record(options, imageBytes, volume)) << "\n";
  } else {
    PrintToOut(console, Fat32Text(options, imageBytes, volume));
  }
  return kDone;
}

void ForgetContent(Json& record) {
  for (const char* unknown :
       {"clustersBad", "largestFreeRun", "fragmented", "fragments", "slackBytes", "files",
        "directories", "fileBytes", "hiddenFiles", "hiddenDirectories", "hiddenBytes"}) {
    record[unknown] = nullptr;
  }
}

std::string PartitionPlace(std::uint8_t type, std::uint32_t start, std::uint32_t sectors) {
  return "type " + FormatPartitionType(type) + ", sectors from " + GroupDigits(start) + ", " +
         GroupDigits(sectors) + " of them";
}

}  // namespace quorbix::virtdisk::tool
