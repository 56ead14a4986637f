#ifndef QUORBIX_VIRTDISK_FAT16_VOLUME_LAYOUT_H_
#define QUORBIX_VIRTDISK_FAT16_VOLUME_LAYOUT_H_

#include <cstddef>
#include <cstdint>

// Every offset, size and marker of the disk format, grouped by structure. Offsets are in bytes from
// the structure's first byte; all integers on the disk are little-endian.

namespace quorbix::virtdisk::internal {

inline constexpr std::uint32_t kSectorBytes = 512;

namespace mbr {                                      // master boot record, sector 0
inline constexpr std::size_t kJump = 0;              // u8[3]
inline constexpr std::size_t kPartitionTable = 446;  // partition_entry[4]
inline constexpr std::size_t kPartitionCount = 4;
inline constexpr std::size_t kSignature = 510;  // u8[2]
inline constexpr std::uint8_t kSelfJump[3] = {0xEB, 0xFE, 0x90};
}  // namespace mbr

// The two bytes that end a master boot record and a boot sector.
inline constexpr std::uint8_t kSignatureBytes[2] = {0x55, 0xAA};
constexpr bool HasSignature(const std::uint8_t* sector) {
  return sector[mbr::kSignature] == kSignatureBytes[0] &&
         sector[mbr::kSignature + 1] == kSignatureBytes[1];
}

namespace partition_entry {  // 16 bytes
inline constexpr std::size_t kSize = 16;
inline constexpr std::size_t kStatus = 0;        // u8
inline constexpr std::size_t kFirstChs = 1;      // u8[3]
inline constexpr std::size_t kType = 4;          // u8
inline constexpr std::size_t kLastChs = 5;       // u8[3]
inline constexpr std::size_t kStartLba = 8;      // u32, sectors
inline constexpr std::size_t kSectorCount = 12;  // u32
inline constexpr std::uint8_t kActive = 0x80;
inline constexpr std::uint8_t kTypeFat12 = 0x01;
inline constexpr std::uint8_t kTypeFat16Small = 0x04;
inline constexpr std::uint8_t kTypeFat16 = 0x06;
inline constexpr std::uint8_t kTypeFat16Lba = 0x0E;
static_assert(kSectorCount + 4 == kSize);
static_assert(mbr::kPartitionTable + mbr::kPartitionCount * kSize == mbr::kSignature);
}  // namespace partition_entry

namespace boot_sector {                                // first sector of a volume
inline constexpr std::size_t kJump = 0;                // u8[3]     BS_jmpBoot
inline constexpr std::size_t kOemName = 3;             // char[8]   BS_OEMName
inline constexpr std::size_t kBytesPerSector = 11;     // u16       BPB_BytsPerSec
inline constexpr std::size_t kSectorsPerCluster = 13;  // u8        BPB_SecPerClus
inline constexpr std::size_t kReservedSectors = 14;    // u16       BPB_RsvdSecCnt
inline constexpr std::size_t kFatCount = 16;           // u8        BPB_NumFATs
inline constexpr std::size_t kRootEntryCount = 17;     // u16       BPB_RootEntCnt
inline constexpr std::size_t kTotalSectors16 = 19;     // u16       BPB_TotSec16
inline constexpr std::size_t kMedia = 21;              // u8        BPB_Media
inline constexpr std::size_t kSectorsPerFat = 22;      // u16       BPB_FATSz16
inline constexpr std::size_t kSectorsPerTrack = 24;    // u16       BPB_SecPerTrk
inline constexpr std::size_t kHeadCount = 26;          // u16       BPB_NumHeads
inline constexpr std::size_t kHiddenSectors = 28;      // u32       BPB_HiddSec
inline constexpr std::size_t kTotalSectors32 = 32;     // u32       BPB_TotSec32
inline constexpr std::size_t kDriveNumber = 36;        // u8        BS_DrvNum
inline constexpr std::size_t kExtendedSignature = 38;  // u8        BS_BootSig
inline constexpr std::size_t kVolumeId = 39;           // u32       BS_VolID
inline constexpr std::size_t kVolumeLabel = 43;        // char[11]  BS_VolLab
inline constexpr std::size_t kFileSystemType = 54;     // char[8]   BS_FilSysType
inline constexpr std::size_t kSignature = 510;         // u8[2]
inline constexpr std::size_t kVolumeLabelSize = 11;
inline constexpr std::size_t kFileSystemTypeSize = 8;
inline constexpr std::uint8_t kMediaFixedDisk = 0xF8;
inline constexpr std::uint8_t kFirstHardDisk = 0x80;
inline constexpr std::uint8_t kExtendedSignatureValue = 0x29;
static_assert(kVolumeLabel + kVolumeLabelSize == kFileSystemType);
}  // namespace boot_sector

namespace dir_entry {  // 32 bytes
inline constexpr std::size_t kSize = 32;
inline constexpr std::size_t kBaseName = 0;       // char[8]   DIR_Name, first part
inline constexpr std::size_t kExtension = 8;      // char[3]   DIR_Name, last part
inline constexpr std::size_t kAttributes = 11;    // u8        DIR_Attr
inline constexpr std::size_t kWriteTime = 22;     // u16       DIR_WrtTime
inline constexpr std::size_t kWriteDate = 24;     // u16       DIR_WrtDate
inline constexpr std::size_t kFirstCluster = 26;  // u16       DIR_FstClusLO
inline constexpr std::size_t kFileSize = 28;      // u32       DIR_FileSize, bytes
inline constexpr std::size_t kBaseNameSize = 8;
inline constexpr std::size_t kExtensionSize = 3;
inline constexpr std::size_t kNameSize = kBaseNameSize + kExtensionSize;
inline constexpr std::uint8_t kNeverUsed = 0x00;  // first byte of the name
inline constexpr std::uint8_t kDeleted = 0xE5;    // first byte of the name
inline constexpr std::uint8_t kAttrVolumeLabel = 0x08;
inline constexpr std::uint8_t kAttrDirectory = 0x10;
inline constexpr std::uint8_t kAttrArchive = 0x20;
inline constexpr std::uint8_t kAttrLongName = 0x0F;  // read-only, hidden, system and label
static_assert(kFileSize + 4 == kSize);
static_assert(kNameSize == boot_sector::kVolumeLabelSize);
}  // namespace dir_entry

namespace fat {  // an array of u16, one word per cluster
inline constexpr std::uint32_t kWordBytes = 2;
inline constexpr std::uint32_t kFirstCluster = 2;  // words 0 and 1 are reserved
inline constexpr std::uint16_t kFree = 0x0000;
inline constexpr std::uint16_t kBadCluster = 0xFFF7;
inline constexpr std::uint16_t kFirstEndOfChain = 0xFFF8;
inline constexpr std::uint16_t kEndOfChain = 0xFFFF;
inline constexpr std::uint16_t kReservedWord0 = 0xFFF8;  // media byte in the low byte
inline constexpr std::uint16_t kReservedWord1 = 0xFFFF;
}  // namespace fat

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_FAT16_VOLUME_LAYOUT_H_
