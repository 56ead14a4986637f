#include "support/blank_disk.h"

#include <string_view>

namespace quorbix::virtdisk::test {
namespace {

void PutText(ImageCrafter& disk, std::size_t offset, std::string_view text) {
  for (const char c : text) disk.Byte(offset++, static_cast<std::uint8_t>(c));
}

void PutMasterBootRecord(ImageCrafter& disk, const BlankDiskFields& fields) {
  PutText(disk, 0, "\xEB\xFE\x90");
  disk.Byte(446, 0x80);                                  // active
  disk.Byte(447, 0x00).Byte(448, 0x02).Byte(449, 0x00);  // LBA 1: head 0, sector 2, cylinder 0
  disk.Byte(450, 0x04);
  for (std::size_t i = 0; i < 3; ++i) disk.Byte(451 + i, fields.lastSectorChs[i]);
  disk.U32(454, 1);
  disk.U32(458, fields.partitionSectors);
  PutText(disk, 510, "\x55\xAA");
}

void PutBootSector(ImageCrafter& disk, const BlankDiskFields& fields) {
  const std::size_t boot = 512;
  const bool small = fields.partitionSectors < 65536;
  PutText(disk, boot, "\xEB\x58\x90QUORBIX ");
  disk.U16(boot + 11, 512);
  disk.Byte(boot + 13, fields.sectorsPerCluster);
  disk.U16(boot + 14, 1);
  disk.Byte(boot + 16, 2);
  disk.U16(boot + 17, 512);
  disk.U16(boot + 19,
           small ? static_cast<std::uint16_t>(fields.partitionSectors) : std::uint16_t{0});
  disk.Byte(boot + 21, 0xF8);
  disk.U16(boot + 22, fields.sectorsPerFat);
  disk.U16(boot + 24, 63);
  disk.U16(boot + 26, 16);
  disk.U32(boot + 28, 1);
  disk.U32(boot + 32, small ? 0 : fields.partitionSectors);
  disk.Byte(boot + 36, 0x80);
  disk.Byte(boot + 37, 0);
  disk.Byte(boot + 38, 0x29);
  disk.U32(boot + 39, fields.volumeId);
  PutText(disk, boot + 43, fields.label);
  PutText(disk, boot + 54, "FAT16   ");
  PutText(disk, boot + 510, "\x55\xAA");
}

}  // namespace

ImageCrafter BlankDisk(const BlankDiskFields& fields) {
  ImageCrafter disk({.sectorsPerCluster = fields.sectorsPerCluster,
                     .rootEntryCount = 512,
                     .sectorsPerFat = fields.sectorsPerFat,
                     .clusters = fields.clusters,
                     .trailingSectors = fields.trailingSectors,
                     .unclaimed = 0x00});
  PutMasterBootRecord(disk, fields);
  PutBootSector(disk, fields);
  return disk.Label(fields.label);
}

}  // namespace quorbix::virtdisk::test
