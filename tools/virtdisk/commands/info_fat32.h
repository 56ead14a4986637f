#ifndef QUORBIX_VIRTDISK_TOOL_INFO_FAT32_H_
#define QUORBIX_VIRTDISK_TOOL_INFO_FAT32_H_

#include "commands/commands.h"
#include "disk/fat32_volume.h"
#include "terminal/console.h"
#include "terminal/json.h"

namespace quorbix::virtdisk::tool {

// What `info` tells of a volume that is not looked into. Returns the program's exit status.
int TellFat32(Console& console, const InfoOptions& options, std::uint64_t imageBytes,
              const Fat32Volume& volume);

// Makes `null` of what only a look into the FAT and the directories would tell, but for the numbers
// of used and free clusters.
void ForgetContent(Json& record);

// `type 0x0C, sectors from 2,048, 204,800 of them`
std::string PartitionPlace(std::uint8_t type, std::uint32_t start, std::uint32_t sectors);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_INFO_FAT32_H_
