#include "check/check_volume.h"

#include <bit>
#include <cstdint>

#include "browser/volume_description.h"
#include "check/fat_table.h"
#include "check/finding_list.h"
#include "check/partitions.h"
#include "check/system_area.h"
#include "check/tree_check.h"
#include "common/fat_words.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr std::uint16_t kMostSectorBytes = 4096;

// Remembers whether a read failed, which a volume's description does not tell apart from damage.
class WatchedSource final : public ByteSource {
 public:
  explicit WatchedSource(ByteSource& source) : inner(source) {}

  std::uint64_t Size() const override { return inner.Size(); }
  const std::uint8_t* Read(std::uint64_t offset, std::size_t size,
                           std::vector<std::uint8_t>& buffer, std::string& err) override {
    const std::uint8_t* bytes = inner.Read(offset, size, buffer, err);
    hasFailed = hasFailed || bytes == nullptr;
    return bytes;
  }
  bool HasFailed() const { return hasFailed; }

 private:
  ByteSource& inner;
  bool hasFailed = false;
};

void CountClusters(const FatTable& fat, VolumeCounts& counts) {
  counts.clusters = fat.End() - fat::kFirstCluster;
  counts.clusterBytes = fat.ClusterBytes();
  for (std::uint32_t cluster = fat::kFirstCluster; cluster < fat.End(); ++cluster) {
    const std::uint16_t word = fat.Word(cluster);
    const bool isFree = fat::IsFree(word);
    ++(isFree ? counts.freeClusters : fat::IsBad(word) ? counts.badClusters : counts.usedClusters);
  }
}

bool CheckTree(ByteSource& image, const Fat16FsInfo& info, const FatTable& fat, CheckReport& report,
               FindingList& findings, const FoundClusters& foundClusters, std::string& err) {
  const std::uint64_t rootEnd =
      (std::uint64_t{info.rootDirStartSector} + info.rootDirSectors) * kSectorBytes;
  if (rootEnd > image.Size()) {
    findings.Add(FindingKind::kRootBeyondImage);
    return true;
  }
  TreeCheck tree(image, info, fat, findings, report.counts, foundClusters);
  if (!tree.Run(err)) return false;
  report.meetings = tree.Meetings();
  const ClusterClaims::Lost lost = tree.CountLost();
  report.counts.lostClusters = lost.clusters;
  if (lost.clusters > 0) findings.Add(FindingKind::kLostClusters, {lost.clusters, lost.chains});
  report.isWhole = true;
  return true;
}

// FAT32 keeps at 0 what makes a volume readable as FAT16, but not these.
bool LooksLikeFat(const Fat16FsInfo& info) {
  return std::has_single_bit(info.bytesPerSector) && info.bytesPerSector >= kSectorBytes &&
         info.bytesPerSector <= kMostSectorBytes && std::has_single_bit(info.sectorsPerCluster) &&
         info.reservedSectors != 0 && info.fatCount != 0;
}

void TellWhyUnreadable(const Fat16FsInfo& info, FindingList& findings) {
  if (!LooksLikeFat(info)) return findings.Add(FindingKind::kNoVolume);
  if (ClaimOf(info) == VolumeClaim::kFat32) return findings.Add(FindingKind::kFat32);
  if (info.bytesPerSector == kSectorBytes) return findings.Add(FindingKind::kNoVolume);
  findings.Add(FindingKind::kOtherSectorSize, {info.bytesPerSector});
}

bool CheckTable(ByteSource& image, const Fat16FsInfo& info, FindingList& findings,
                std::string& err) {
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* sector = image.Read(0, kSectorBytes, buffer, err);
  if (sector == nullptr) return false;
  CheckPartitions(sector, image.Size(), info, findings);
  return true;
}

// Where there is no volume, and none of them is of a kind that is looked into.
bool TellPartitions(ByteSource& image, const Fat16FsInfo& info, FindingList& findings,
                    std::string& err) {
  std::vector<Partition> partitions;
  if (!FindOtherPartitions(image, info, partitions, err)) return false;
  for (const Partition& one : partitions) {
    findings.Add(FindingKind::kOtherPartition, {one.number, one.type});
  }
  return true;
}

bool CheckDescribed(ByteSource& image, const Fat16FsInfo& info, CheckReport& report,
                    FindingList& findings, const FoundClusters& foundClusters, std::string& err) {
  std::vector<std::uint8_t> buffer;
  const std::uint8_t* boot = image.Read(info.volumeOffset, kSectorBytes, buffer, err);
  if (boot == nullptr) return false;
  const std::uint8_t mediaByte = boot[boot_sector::kMedia];
  if (!CheckBootSector(boot, image.Size(), info, findings)) return true;

  FatTable fat(info);
  if (!fat.Load(image, ClaimedClusters(info), err)) return false;
  CountClusters(fat, report.counts);
  return CheckFats(image, fat, mediaByte, info.fatCount, findings, err) &&
         CheckTree(image, info, fat, report, findings, foundClusters, err);
}

}  // namespace

bool CheckReport::IsSound() const {
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (found[i] > 0 && IsDamage(static_cast<FindingKind>(i))) return false;
  }
  return true;
}

bool CheckVolume(ByteSource& image, CheckReport& report, std::string& err,
                 const FoundClusters& foundClusters) {
  report = {};
  err.clear();
  FindingList findings(report);
  WatchedSource source(image);
  Fat16FsInfo info;
  std::string reason;
  const bool isDescribed = DescribeVolume(source, info, reason);
  if (source.HasFailed()) {
    err = reason;
    return false;
  }
  report.isPartitioned = info.partitioned;
  if (info.partitioned && !CheckTable(source, info, findings, err)) return false;
  if (isDescribed) return CheckDescribed(source, info, report, findings, foundClusters, err);
  TellWhyUnreadable(info, findings);
  return info.partitioned || TellPartitions(source, info, findings, err);
}

}  // namespace quorbix::virtdisk::internal
