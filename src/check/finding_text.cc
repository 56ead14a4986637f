#include "check/finding_text.h"

#include <cstddef>
#include <cstdint>

#include "fat16/geometry.h"

namespace quorbix::virtdisk::internal {
namespace {

std::string Text(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t i = digits.size(); i > 3;) {
    i -= 3;
    digits.insert(i, 1, ',');
  }
  return digits;
}

std::string Count(std::uint64_t number, const char* one, const char* many) {
  return Text(number) + " " + (number == 1 ? one : many);
}

std::string Hex(std::uint64_t number) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string digits;
  do {
    digits.insert(digits.begin(), kDigits[number % 16]);
    number /= 16;
  } while (number != 0 || digits.size() % 2 != 0);
  return "0x" + digits;
}

std::string AboutThePartitions(const Finding& finding) {
  const auto& n = finding.numbers;
  switch (finding.kind) {
    case FindingKind::kPartitionBeyondImage:
      return "partition " + Text(n[0]) + " ends at byte " + Text(n[1]) +
             ", and the image ends after " + Text(n[2]);
    case FindingKind::kPartitionsOverlap:
      return "partitions " + Text(n[0]) + " and " + Text(n[1]) + " overlap";
    case FindingKind::kOtherPartition:
      return "partition " + Text(n[0]) + " of type " + Hex(n[1]) + " was not looked at";
    default:
      return "the volume has " + Text(n[0]) + " sectors, and its partition " + Text(n[1]);
  }
}

std::string AboutTheBootSector(const Finding& finding) {
  const auto& n = finding.numbers;
  switch (finding.kind) {
    case FindingKind::kNoVolume:
      return "there is no FAT16 volume in the image";
    case FindingKind::kOtherSectorSize:
      return "the volume has sectors of " + Text(n[0]) + " bytes; only those of 512 can be read";
    case FindingKind::kImageTooShort:
      return "the volume ends at byte " + Text(n[0]) + ", and the image ends after " + Text(n[1]);
    case FindingKind::kNoSignature:
      return "the boot sector does not end with 55 AA";
    case FindingKind::kFat12:
      return "the boot sector says FAT12 (" + Count(n[0], "cluster", "clusters") + ")";
    case FindingKind::kFat32:
      return "the boot sector says FAT32";
    case FindingKind::kTakenForFat12:
      return "the volume has " + Count(n[0], "cluster", "clusters") +
             ", which makes it FAT12, and its boot sector does not say FAT16";
    case FindingKind::kFewClusters:
      return "the boot sector says FAT16, but with fewer than " + Text(kFewestFat16Clusters) +
             " clusters (" + Text(n[0]) + ") other systems take the volume for FAT12";
    case FindingKind::kManyClusters:
      return "the volume has " + Text(n[0]) + " clusters; FAT16 has at most " +
             Text(kMostFat16Clusters);
    case FindingKind::kNoSectorCount:
      return "the boot sector does not tell how many sectors there are";
    case FindingKind::kNoRoom:
      return "the FATs and the root directory take " + Count(n[0], "sector", "sectors") + " of " +
             Text(n[1]) + ", and none is left for clusters";
    case FindingKind::kBeyondSectorNumbers:
      return "the FATs and the root directory lie beyond what numbers of sectors can tell";
    case FindingKind::kOddClusterSize:
      return "a cluster has " + Text(n[0]) + " sectors, which is no power of two";
    default:
      return "the FAT has room for " + Text(n[0]) + " of the " + Text(n[1]) +
             " clusters; other systems may refuse the volume";
  }
}

std::string AboutTheFats(const Finding& finding) {
  const auto& n = finding.numbers;
  if (finding.kind == FindingKind::kFatsDiffer) {
    return "FAT " + Text(n[0]) + " differs from the first one in " + Count(n[1], "word", "words") +
           ", first in that of cluster " + Text(n[2]);
  }
  return "the FAT begins with " + Hex(n[0]) + ", and the boot sector's media byte is " + Hex(n[1]);
}

std::string AboutAChain(const Finding& finding) {
  const auto& n = finding.numbers;
  switch (finding.kind) {
    case FindingKind::kBadStart:
      return "begins in cluster " + Text(n[0]) + ", which does not exist";
    case FindingKind::kChainLoops:
      return "comes back to its cluster " + Text(n[0]) + " without end";
    case FindingKind::kChainLeavesVolume:
      return "goes on from cluster " + Text(n[1]) + " to " + Text(n[0]) +
             ", which is no cluster, instead of ending";
    case FindingKind::kChainHitsFree:
      return "goes on in cluster " + Text(n[0]) + ", which is free";
    case FindingKind::kChainHitsBad:
      return "goes on in cluster " + Text(n[0]) + ", which is marked bad";
    case FindingKind::kChainMeetsAnother:
      return "shares its clusters from " + Text(n[0]) + " on with " + finding.otherPath;
    case FindingKind::kChainTooShort:
      return "has clusters for " + Text(n[0]) + " of its " + Count(n[1], "byte", "bytes");
    case FindingKind::kChainTooLong:
      return "has " + Count(n[0], "cluster", "clusters") + " and needs " + Text(n[1]);
    default:
      return Count(n[0], "cluster is", "clusters are") + " in use in " +
             Count(n[1], "chain", "chains") + " that no file and no directory begins with";
  }
}

std::string AboutTheLabel(std::uint64_t byte, bool isBlank) {
  const std::string what = isBlank       ? "is blank"
                           : byte == ' ' ? "begins with a blank"
                                         : "has the byte " + Hex(byte);
  return "the label in the root directory " + what +
         ", which other systems do not write; repairs remove it";
}

std::string AboutAnEntry(const Finding& finding) {
  const auto& n = finding.numbers;
  switch (finding.kind) {
    case FindingKind::kRootBeyondImage:
      return "the root directory lies beyond the end of the image";
    case FindingKind::kDirectoryWithSize:
      return "is a directory with a size: " + Count(n[0], "byte", "bytes");
    case FindingKind::kDirectoryWithoutChain:
      return "is a directory without a cluster";
    case FindingKind::kDirectoryTooLong:
      return "is a directory of " + Text(n[0]) + " slots; other systems read at most 65,536";
    case FindingKind::kNoDot:
      return "does not begin with an entry \".\"";
    case FindingKind::kNoDotDot:
      return "has no entry \"..\" in its second place";
    case FindingKind::kDotElsewhere:
      return "has a \".\" that leads to cluster " + Text(n[0]) + " instead of its own, " +
             Text(n[1]);
    case FindingKind::kDotDotElsewhere:
      return "has a \"..\" that leads to cluster " + Text(n[0]) +
             " instead of that of the directory above, " + Text(n[1]);
    case FindingKind::kDuplicateName:
      return "is the name of " + Text(n[0]) + " entries";
    case FindingKind::kUnusableName:
      return "has a name that other systems cannot use";
    case FindingKind::kLeadingBlank:
      return "has a name that begins with a blank; other systems may refuse it, and repairs rename "
             "it";
    case FindingKind::kOddLabel:
      return AboutTheLabel(n[0], n[1] == 1);
    default:
      return "has a name without a base, and no listing shows it";
  }
}

}  // namespace

std::string DescribeFinding(const Finding& finding) {
  switch (PartOf(finding.kind)) {
    case CheckedPart::kPartitionTable:
      return AboutThePartitions(finding);
    case CheckedPart::kBootSector:
      return AboutTheBootSector(finding);
    case CheckedPart::kFats:
      return AboutTheFats(finding);
    case CheckedPart::kChains:
      return AboutAChain(finding);
    default:
      return AboutAnEntry(finding);
  }
}

}  // namespace quorbix::virtdisk::internal
