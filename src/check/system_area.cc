#include "check/system_area.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <vector>

#include "check/partitions.h"
#include "common/byte_order.h"
#include "fat16/geometry.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

bool Overlap(const Partition& a, const Partition& b) {
  return std::max(a.start, b.start) < std::min(a.end, b.end);
}

void CheckClusterCount(const Fat16FsInfo& info, VolumeClaim claim, FindingList& findings) {
  const std::uint64_t clusters = ClaimedClusters(info);
  const std::uint64_t fatWords =
      std::uint64_t{info.sectorsPerFat} * kSectorBytes / fat::kWordBytes - fat::kFirstCluster;
  const std::uint64_t inFront = std::uint64_t{info.dataStartSector} - info.partitionStartLba;
  if (info.totalSectors == 0) {
    findings.Add(FindingKind::kNoSectorCount);
  } else if (clusters == 0) {
    findings.Add(FindingKind::kNoRoom, {inFront, info.totalSectors});
  } else if (claim == VolumeClaim::kSmallFat16) {
    findings.Add(FindingKind::kFewClusters, {clusters});
  }
  if (clusters > kMostFat16Clusters) findings.Add(FindingKind::kManyClusters, {clusters});
  if (clusters > fatWords) findings.Add(FindingKind::kFatTooShort, {fatWords, clusters});
}

void CheckSizes(std::uint64_t imageBytes, const Fat16FsInfo& info, FindingList& findings) {
  const std::uint64_t end = info.volumeOffset + std::uint64_t{info.totalSectors} * kSectorBytes;
  if (end > imageBytes) {
    findings.Add(FindingKind::kImageTooShort, {end, imageBytes});
  }
  if (info.partitioned && info.totalSectors > info.partitionSectorCount) {
    findings.Add(FindingKind::kVolumeBeyondPartition,
                 {info.totalSectors, info.partitionSectorCount});
  }
}

}  // namespace

void CheckPartitions(const std::uint8_t* sector, std::uint64_t imageBytes, const Fat16FsInfo& info,
                     FindingList& findings) {
  const std::vector<Partition> partitions = UsedPartitions(sector);
  const std::size_t chosen = PlaceOf(info, partitions);
  for (std::size_t i = 0; i < partitions.size(); ++i) {
    const Partition& one = partitions[i];
    const std::uint64_t endByte = one.end * kSectorBytes;
    if (endByte > imageBytes) {
      findings.Add(FindingKind::kPartitionBeyondImage, {one.number, endByte, imageBytes});
    }
    for (std::size_t j = i + 1; j < partitions.size(); ++j) {
      if (!Overlap(one, partitions[j])) continue;
      findings.Add(FindingKind::kPartitionsOverlap, {one.number, partitions[j].number});
    }
    if (i != chosen) findings.Add(FindingKind::kOtherPartition, {one.number, one.type});
  }
}

bool CheckBootSector(const std::uint8_t* boot, std::uint64_t imageBytes, const Fat16FsInfo& info,
                     FindingList& findings) {
  if (!HasSignature(boot)) findings.Add(FindingKind::kNoSignature);
  if (!std::has_single_bit(info.sectorsPerCluster)) {
    findings.Add(FindingKind::kOddClusterSize, {info.sectorsPerCluster});
  }
  CheckSizes(imageBytes, info, findings);
  if (IsBeyondSectorNumbers(info)) {
    findings.Add(FindingKind::kBeyondSectorNumbers);
    return false;
  }
  const VolumeClaim claim = ClaimOf(info);
  if (claim == VolumeClaim::kFat12) findings.Add(FindingKind::kFat12, {ClaimedClusters(info)});
  if (claim == VolumeClaim::kFat32) findings.Add(FindingKind::kFat32);
  if (claim == VolumeClaim::kTooFew) {
    findings.Add(FindingKind::kTakenForFat12, {ClaimedClusters(info)});
  }
  if (WouldBeMisread(claim)) return false;
  CheckClusterCount(info, claim, findings);
  return ClaimedClusters(info) > 0;
}

bool CheckFats(ByteSource& image, const FatTable& fat, std::uint8_t mediaByte, unsigned copies,
               FindingList& findings, std::string& err) {
  if (!fat.HasReservedWords()) return true;
  if (fat.Word(0) != (0xFF00 | mediaByte)) {
    findings.Add(FindingKind::kMediaByte, {fat.Word(0), mediaByte});
  }
  for (unsigned copy = 1; copy < copies; ++copy) {
    FatTable::Difference difference;
    if (!fat.Compare(image, copy, difference, err)) return false;
    if (difference.words == 0) continue;
    findings.Add(FindingKind::kFatsDiffer, {copy + 1, difference.words, difference.first});
  }
  return true;
}

}  // namespace quorbix::virtdisk::internal
