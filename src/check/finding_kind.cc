#include "check/finding_kind.h"

#include <array>

namespace quorbix::virtdisk::internal {
namespace {

using enum FindingKind;
using enum CheckedPart;

constexpr bool kDamage = true;
constexpr bool kRemark = false;

struct Traits {
  FindingKind kind;
  CheckedPart part;
  bool isDamage;
  std::string_view name;
};

// In the order of FindingKind.
constexpr std::array<Traits, kFindingKinds> kTraits{{
    {kPartitionBeyondImage, kPartitionTable, kDamage, "partitionBeyondImage"},
    {kPartitionsOverlap, kPartitionTable, kDamage, "partitionsOverlap"},
    {kOtherPartition, kPartitionTable, kRemark, "otherPartition"},
    {kVolumeBeyondPartition, kPartitionTable, kDamage, "volumeBeyondPartition"},
    {kNoVolume, kBootSector, kDamage, "noVolume"},
    {kOtherSectorSize, kBootSector, kDamage, "otherSectorSize"},
    {kImageTooShort, kBootSector, kDamage, "imageTooShort"},
    {kNoSignature, kBootSector, kRemark, "noSignature"},
    {kFat12, kBootSector, kDamage, "fat12"},
    {kFat32, kBootSector, kDamage, "fat32"},
    {kTakenForFat12, kBootSector, kDamage, "takenForFat12"},
    {kFewClusters, kBootSector, kRemark, "fewClusters"},
    {kManyClusters, kBootSector, kDamage, "manyClusters"},
    {kNoSectorCount, kBootSector, kDamage, "noSectorCount"},
    {kNoRoom, kBootSector, kDamage, "noRoom"},
    {kBeyondSectorNumbers, kBootSector, kDamage, "beyondSectorNumbers"},
    {kOddClusterSize, kBootSector, kDamage, "oddClusterSize"},
    {kFatTooShort, kBootSector, kRemark, "fatTooShort"},
    {kFatsDiffer, kFats, kDamage, "fatsDiffer"},
    {kMediaByte, kFats, kDamage, "mediaByte"},
    {kBadStart, kChains, kDamage, "badStart"},
    {kChainLoops, kChains, kDamage, "chainLoops"},
    {kChainLeavesVolume, kChains, kDamage, "chainLeavesVolume"},
    {kChainHitsFree, kChains, kDamage, "chainHitsFree"},
    {kChainHitsBad, kChains, kDamage, "chainHitsBad"},
    {kChainMeetsAnother, kChains, kDamage, "chainMeetsAnother"},
    {kChainTooShort, kChains, kDamage, "chainTooShort"},
    {kChainTooLong, kChains, kDamage, "chainTooLong"},
    {kLostClusters, kChains, kDamage, "lostClusters"},
    {kRootBeyondImage, kDirectories, kDamage, "rootBeyondImage"},
    {kDirectoryWithSize, kDirectories, kDamage, "directoryWithSize"},
    {kDirectoryWithoutChain, kDirectories, kDamage, "directoryWithoutChain"},
    {kDirectoryTooLong, kDirectories, kDamage, "directoryTooLong"},
    {kNoDot, kDirectories, kDamage, "noDot"},
    {kNoDotDot, kDirectories, kDamage, "noDotDot"},
    {kDotElsewhere, kDirectories, kDamage, "dotElsewhere"},
    {kDotDotElsewhere, kDirectories, kDamage, "dotDotElsewhere"},
    {kDuplicateName, kNames, kDamage, "duplicateName"},
    {kUnusableName, kNames, kDamage, "unusableName"},
    {kHiddenEntry, kNames, kRemark, "hiddenEntry"},
    {kLeadingBlank, kNames, kRemark, "leadingBlank"},
    {kOddLabel, kNames, kRemark, "oddLabel"},
}};

constexpr bool IsInOrder() {
  for (std::size_t i = 0; i < kTraits.size(); ++i) {
    if (kTraits[i].kind != static_cast<FindingKind>(i)) return false;
  }
  return true;
}
static_assert(IsInOrder());

const Traits& TraitsOf(FindingKind kind) { return kTraits[static_cast<std::size_t>(kind)]; }

}  // namespace

std::string_view KindName(FindingKind kind) { return TraitsOf(kind).name; }

CheckedPart PartOf(FindingKind kind) { return TraitsOf(kind).part; }

bool IsDamage(FindingKind kind) { return TraitsOf(kind).isDamage; }

}  // namespace quorbix::virtdisk::internal
