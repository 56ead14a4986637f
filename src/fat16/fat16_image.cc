#include "fat16/fat16_image.h"

#include <fcntl.h>

#include <algorithm>
#include <array>

#include "common/ascii.h"
#include "common/byte_order.h"
#include "common/fail.h"
#include "common/fat_words.h"
#include "common/host_file.h"
#include "fat16/full_disk.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {
namespace {

constexpr char kCannotOpen[] = "Cannot open output image: ";
constexpr char kWriteFailed[] = "Write failed for: ";

constexpr std::int64_t kNoSlot = -1;

constexpr std::size_t kWrittenAtOnce = std::size_t{4} << 20;

// A huge page is filled with zeros whole when its first byte is touched: where less goes, small
// ones take less time and memory.
constexpr std::uint64_t kHugePagesFrom = std::uint64_t{4} << 20;

constexpr std::uint8_t kBootJump[3] = {0xEB, 0x58, 0x90};
constexpr std::string_view kOemName = "QUORBIX ";
constexpr std::string_view kFileSystemType = "FAT16   ";
constexpr std::uint16_t kSectorsPerTrack = 63;
constexpr std::uint16_t kHeads = 16;
constexpr std::uint32_t kMost16BitSectors = 65535;

// The last sector that 1024 cylinders reach; what lies beyond saturates at the geometry's last
// address, with head 15 instead of the common 254, which this geometry does not have.
constexpr std::uint32_t kLastChsLba = 1024 * kHeads * kSectorsPerTrack - 1;
constexpr std::array<std::uint8_t, 3> kSaturatedChs = {0x0F, 0xFF, 0xFF};

std::array<std::uint8_t, 3> EncodeChs(std::uint32_t lba) {
  if (lba > kLastChsLba) return kSaturatedChs;
  const std::uint32_t sectorsPerCylinder = kHeads * kSectorsPerTrack;
  const std::uint32_t cylinder = lba / sectorsPerCylinder;
  const std::uint32_t head = lba % sectorsPerCylinder / kSectorsPerTrack;
  const std::uint32_t sector = lba % sectorsPerCylinder % kSectorsPerTrack + 1;
  return {static_cast<std::uint8_t>(head), static_cast<std::uint8_t>(sector | (cylinder >> 8 << 6)),
          static_cast<std::uint8_t>(cylinder)};
}

std::string Padded(std::string_view text, std::size_t width) {
  std::string padded(text.substr(0, width));
  padded.resize(width, ' ');
  return padded;
}

std::string PaddedLabel(std::string_view label) {
  std::string padded = Padded(label, boot_sector::kVolumeLabelSize);
  std::transform(padded.begin(), padded.end(), padded.begin(),
                 [](char c) { return ToAsciiUpper(c); });
  return padded;
}

struct DirEntry {
  std::string_view name;
  std::uint8_t attributes = 0;
  std::uint16_t firstCluster = 0;
  std::uint32_t size = 0;
};

// Writes all 32 bytes; the times and dates stay zero, images carry none.
void WriteDirEntry(std::uint8_t* slot, const DirEntry& entry) {
  std::fill_n(slot, dir_entry::kSize, std::uint8_t{0});
  const std::string name = Padded(entry.name, dir_entry::kNameSize);
  std::copy(name.begin(), name.end(), slot + dir_entry::kBaseName);
  slot[dir_entry::kAttributes] = entry.attributes;
  StoreU16(slot + dir_entry::kFirstCluster, entry.firstCluster);
  StoreU32(slot + dir_entry::kFileSize, entry.size);
}

}  // namespace

bool Fat16Image::Init(std::uint64_t sizeBytes, std::string& err) {
  if (!ComputeGeometry(sizeBytes, geometry, err)) return false;
  bytes = ZeroedBytes(std::size_t{geometry.imageSectors} * kSectorBytes);
  SetFatWord(0, fat::kReservedWord0);
  SetFatWord(1, fat::kReservedWord1);
  nextClusterHint = fat::kFirstCluster;
  takenClusters = 0;
  slotCursors.clear();
  return true;
}

void Fat16Image::WriteBootSector(std::string_view label, std::uint32_t volumeId) {
  std::uint8_t* boot = At(std::uint64_t{kPartitionStart} * kSectorBytes);
  const bool fits16 = geometry.partitionSectors <= kMost16BitSectors;
  const std::string paddedLabel = PaddedLabel(label);
  std::copy(std::begin(kBootJump), std::end(kBootJump), boot + boot_sector::kJump);
  std::copy(kOemName.begin(), kOemName.end(), boot + boot_sector::kOemName);
  StoreU16(boot + boot_sector::kBytesPerSector, kSectorBytes);
  boot[boot_sector::kSectorsPerCluster] = static_cast<std::uint8_t>(geometry.sectorsPerCluster);
  StoreU16(boot + boot_sector::kReservedSectors, kReservedSectors);
  boot[boot_sector::kFatCount] = kFatCount;
  StoreU16(boot + boot_sector::kRootEntryCount, kRootEntryCount);
  StoreU16(boot + boot_sector::kTotalSectors16,
           fits16 ? static_cast<std::uint16_t>(geometry.partitionSectors) : std::uint16_t{0});
  boot[boot_sector::kMedia] = boot_sector::kMediaFixedDisk;
  StoreU16(boot + boot_sector::kSectorsPerFat, static_cast<std::uint16_t>(geometry.sectorsPerFat));
  StoreU16(boot + boot_sector::kSectorsPerTrack, kSectorsPerTrack);
  StoreU16(boot + boot_sector::kHeadCount, kHeads);
  StoreU32(boot + boot_sector::kHiddenSectors, kPartitionStart);
  StoreU32(boot + boot_sector::kTotalSectors32, fits16 ? 0 : geometry.partitionSectors);
  boot[boot_sector::kDriveNumber] = boot_sector::kFirstHardDisk;
  boot[boot_sector::kExtendedSignature] = boot_sector::kExtendedSignatureValue;
  StoreU32(boot + boot_sector::kVolumeId, volumeId);
  std::copy(paddedLabel.begin(), paddedLabel.end(), boot + boot_sector::kVolumeLabel);
  std::copy(kFileSystemType.begin(), kFileSystemType.end(), boot + boot_sector::kFileSystemType);
  std::copy(std::begin(kSignatureBytes), std::end(kSignatureBytes), boot + boot_sector::kSignature);
}

void Fat16Image::SetVolumeLabel(std::string_view label) {
  std::string ignored;
  const std::int64_t slot = FindFreeDirSlot(kRootDirectory, ignored);
  if (slot == kNoSlot) return;
  WriteDirEntry(At(static_cast<std::uint64_t>(slot)),
                {.name = PaddedLabel(label), .attributes = dir_entry::kAttrVolumeLabel});
}

void Fat16Image::WriteMbr() {
  std::copy(std::begin(mbr::kSelfJump), std::end(mbr::kSelfJump), At(mbr::kJump));
  std::uint8_t* entry = At(mbr::kPartitionTable);
  const auto first = EncodeChs(kPartitionStart);
  const auto last = EncodeChs(kPartitionStart + geometry.partitionSectors - 1);
  entry[partition_entry::kStatus] = partition_entry::kActive;
  std::copy(first.begin(), first.end(), entry + partition_entry::kFirstChs);
  // At every size, deliberately, although the type once meant volumes below 32 MiB.
  entry[partition_entry::kType] = partition_entry::kTypeFat16Small;
  std::copy(last.begin(), last.end(), entry + partition_entry::kLastChs);
  StoreU32(entry + partition_entry::kStartLba, kPartitionStart);
  StoreU32(entry + partition_entry::kSectorCount, geometry.partitionSectors);
  std::copy(std::begin(kSignatureBytes), std::end(kSignatureBytes), At(mbr::kSignature));
}

void Fat16Image::SeedClusterAllocator(std::uint32_t seed) {
  const std::uint32_t offset = geometry.clusterCount == 0 ? 0 : seed % geometry.clusterCount;
  nextClusterHint = static_cast<std::uint16_t>(offset + fat::kFirstCluster);
}

std::uint16_t Fat16Image::AllocCluster() {
  const std::uint32_t last = LastUsableCluster(geometry);
  std::uint16_t cluster = FirstFreeCluster(nextClusterHint, last);
  if (cluster == 0) {
    cluster =
        FirstFreeCluster(fat::kFirstCluster, std::min<std::uint32_t>(nextClusterHint - 1u, last));
  }
  if (cluster == 0) return 0;
  SetFatWord(cluster, fat::kEndOfChain);
  ++takenClusters;
  nextClusterHint = static_cast<std::uint16_t>(cluster + 1);
  return cluster;
}

std::int64_t Fat16Image::FindFreeDirSlot(std::uint32_t dirCluster, std::string& err) {
  return dirCluster == kRootDirectory ? FindRootSlot(err) : FindSubdirectorySlot(dirCluster, err);
}

std::uint16_t Fat16Image::AddFile(std::uint32_t parentCluster, std::string_view shortName,
                                  const std::uint8_t* data, std::uint32_t size, std::string& err) {
  std::uint16_t firstCluster = 0;
  if (size > 0) {
    firstCluster = WriteFileData(data, size, err);
    if (firstCluster == 0) return 0;
  }
  return WriteFileEntry(parentCluster, shortName, firstCluster, size, err);
}

std::optional<Fat16Image::Chain> Fat16Image::TakeChain(std::uint32_t size) {
  const std::uint64_t count = (size + ClusterBytes() - 1) / ClusterBytes();
  if (count > LastUsableCluster(geometry) - 1 - takenClusters) return std::nullopt;
  Chain chain{.runs = {}, .hintBefore = nextClusterHint};
  std::uint16_t last = AllocCluster();
  chain.runs.push_back({last, 1});
  for (std::uint64_t i = 1; i < count; ++i) {
    const std::uint16_t cluster = LinkNewCluster(last);
    if (cluster == last + 1) {
      ++chain.runs.back().count;
    } else {
      chain.runs.push_back({cluster, 1});
    }
    last = cluster;
  }
  for (const ClusterRun& run : chain.runs) PreferHugePages(run);
  return chain;
}

std::span<std::uint8_t> Fat16Image::RunBytes(const ClusterRun& run) {
  return {At(ClusterOffset(run.first)), static_cast<std::size_t>(run.count * ClusterBytes())};
}

void Fat16Image::GiveBack(const Chain& chain) {
  for (const ClusterRun& run : chain.runs) {
    const auto data = RunBytes(run);
    std::fill(data.begin(), data.end(), std::uint8_t{0});
    for (std::uint32_t i = 0; i < run.count; ++i) SetFatWord(run.first + i, fat::kFree);
    takenClusters -= run.count;
  }
  nextClusterHint = chain.hintBefore;
}

std::uint16_t Fat16Image::AddTakenFile(std::uint32_t parentCluster, std::string_view shortName,
                                       const Chain& chain, std::uint32_t size, std::string& err) {
  return WriteFileEntry(parentCluster, shortName, chain.runs.front().first, size, err);
}

std::uint16_t Fat16Image::AddDirectory(std::uint32_t parentCluster, std::string_view shortName,
                                       std::string& err) {
  const std::uint16_t cluster = AllocCluster();
  if (cluster == 0) {
    err = kDiskFull;
    return 0;
  }
  const auto directory = [](std::string_view name, std::uint16_t firstCluster) {
    return DirEntry{
        .name = name, .attributes = dir_entry::kAttrDirectory, .firstCluster = firstCluster};
  };
  std::uint8_t* slots = At(ClusterOffset(cluster));
  WriteDirEntry(slots, directory(".", cluster));
  WriteDirEntry(slots + dir_entry::kSize,
                directory("..", static_cast<std::uint16_t>(parentCluster)));

  const std::int64_t slot = FindFreeDirSlot(parentCluster, err);
  if (slot == kNoSlot) return 0;
  WriteDirEntry(At(static_cast<std::uint64_t>(slot)), directory(shortName, cluster));
  return cluster;
}

bool Fat16Image::SaveToFile(const std::filesystem::path& outputPath, std::string& err) const {
  Descriptor out = OpenHostPath(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
  if (!out) return Fail(err, kCannotOpen + outputPath.string());
  bytes.PrepareToRead();
  const bool written = WriteFully(out.Get(), bytes.Span());
  // Some file systems tell of a failed write only when the file is closed.
  return (out.Close() && written) || Fail(err, kWriteFailed + outputPath.string());
}

bool Fat16Image::WriteTo(int file, const std::function<bool(std::size_t)>& goesOn) const {
  bytes.PrepareToRead();
  for (auto left = bytes.Span(); !left.empty();) {
    const auto piece = left.first(std::min(left.size(), kWrittenAtOnce));
    if (!WriteFully(file, piece) || !goesOn(piece.size())) return false;
    left = left.subspan(piece.size());
  }
  return true;
}

std::uint64_t Fat16Image::ClusterBytes() const {
  return std::uint64_t{geometry.sectorsPerCluster} * kSectorBytes;
}

std::uint64_t Fat16Image::ClusterOffset(std::uint32_t cluster) const {
  return std::uint64_t{geometry.dataStartSector} * kSectorBytes +
         (cluster - fat::kFirstCluster) * ClusterBytes();
}

std::uint16_t Fat16Image::FatWord(std::uint32_t cluster) const {
  return LoadU16(bytes.data() + std::uint64_t{kFirstFatSector} * kSectorBytes +
                 std::uint64_t{cluster} * fat::kWordBytes);
}

void Fat16Image::SetFatWord(std::uint32_t cluster, std::uint16_t word) {
  for (std::uint32_t copy = 0; copy < kFatCount; ++copy) {
    const std::uint64_t fatSector = kFirstFatSector + std::uint64_t{copy} * geometry.sectorsPerFat;
    StoreU16(At(fatSector * kSectorBytes + std::uint64_t{cluster} * fat::kWordBytes), word);
  }
}

std::uint16_t Fat16Image::FirstFreeCluster(std::uint32_t from, std::uint32_t to) const {
  for (std::uint32_t cluster = from; cluster <= to; ++cluster) {
    if (fat::IsFree(FatWord(cluster))) return static_cast<std::uint16_t>(cluster);
  }
  return 0;
}

std::uint16_t Fat16Image::LinkNewCluster(std::uint32_t lastOfChain) {
  const std::uint16_t cluster = AllocCluster();
  if (cluster != 0) SetFatWord(lastOfChain, cluster);
  return cluster;
}

bool Fat16Image::SkipUsedSlots(std::uint64_t firstSlotOffset, std::uint64_t slotCount,
                               std::uint32_t& slot) const {
  for (; slot < slotCount; ++slot) {
    const std::uint8_t first =
        bytes.data()[firstSlotOffset + std::uint64_t{slot} * dir_entry::kSize];
    if (first == dir_entry::kNeverUsed || first == dir_entry::kDeleted) return true;
  }
  return false;
}

std::int64_t Fat16Image::FindRootSlot(std::string& err) {
  const std::uint64_t start = std::uint64_t{geometry.rootDirSector} * kSectorBytes;
  SlotCursor& cursor = slotCursors[kRootDirectory];
  if (!SkipUsedSlots(start, kRootEntryCount, cursor.slot)) {
    err = kRootFull;
    return kNoSlot;
  }
  return static_cast<std::int64_t>(start + std::uint64_t{cursor.slot} * dir_entry::kSize);
}

std::int64_t Fat16Image::FindSubdirectorySlot(std::uint32_t dirCluster, std::string& err) {
  SlotCursor& cursor = slotCursors.try_emplace(dirCluster, SlotCursor{dirCluster, 0}).first->second;
  const std::uint64_t slotsPerCluster = ClusterBytes() / dir_entry::kSize;
  for (;;) {
    const std::uint64_t start = ClusterOffset(cursor.cluster);
    if (SkipUsedSlots(start, slotsPerCluster, cursor.slot)) {
      return static_cast<std::int64_t>(start + std::uint64_t{cursor.slot} * dir_entry::kSize);
    }
    std::uint16_t next = FatWord(cursor.cluster);
    if (fat::IsEndOfChain(next)) {
      next = LinkNewCluster(cursor.cluster);
      if (next == 0) {
        err = kCannotExtend;
        return kNoSlot;
      }
    }
    cursor = {next, 0};
  }
}

std::uint16_t Fat16Image::WriteFileData(const std::uint8_t* data, std::uint32_t size,
                                        std::string& err) {
  const std::uint16_t firstCluster = AllocCluster();
  if (firstCluster == 0) {
    err = kDiskFull;
    return 0;
  }
  std::uint16_t cluster = firstCluster;
  for (std::uint64_t done = 0;;) {
    const std::uint64_t part = std::min<std::uint64_t>(size - done, ClusterBytes());
    std::copy_n(data + done, part, At(ClusterOffset(cluster)));
    done += part;
    if (done == size) return firstCluster;
    cluster = LinkNewCluster(cluster);
    if (cluster == 0) {
      err = kDiskFullInFile;
      return 0;
    }
  }
}

std::uint16_t Fat16Image::WriteFileEntry(std::uint32_t parentCluster, std::string_view shortName,
                                         std::uint16_t firstCluster, std::uint32_t size,
                                         std::string& err) {
  const std::int64_t slot = FindFreeDirSlot(parentCluster, err);
  if (slot == kNoSlot) return 0;
  WriteDirEntry(At(static_cast<std::uint64_t>(slot)), {.name = shortName,
                                                       .attributes = dir_entry::kAttrArchive,
                                                       .firstCluster = firstCluster,
                                                       .size = size});
  return size == 0 ? kEmptyFileAdded : firstCluster;
}

void Fat16Image::PreferHugePages(const ClusterRun& run) {
  const std::uint64_t size = run.count * ClusterBytes();
  if (size >= kHugePagesFrom) bytes.PreferHugePages(ClusterOffset(run.first), size);
}

}  // namespace quorbix::virtdisk::internal
