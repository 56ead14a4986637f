#ifndef QUORBIX_VIRTDISK_TOOL_FILE_REWRITE_H_
#define QUORBIX_VIRTDISK_TOOL_FILE_REWRITE_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "browser/chain_table.h"
#include "browser/rewrite_plan.h"
#include "browser/volume_index.h"
#include "host/piecewise.h"

namespace quorbix::virtdisk::tool {

// Bytes of an image that lie side by side.
struct ByteRun {
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
  bool operator==(const ByteRun&) const = default;
};

// Whether what is planned would write over clusters that something else leads to: another entry of
// the index, hidden ones among them if they were collected, or a cluster of another chain.
bool WritesOverOthers(const internal::VolumeIndex& volume, const internal::RewritePlan& plan);

// Whether what is planned would write to clusters that the volume does not have: they lie behind
// its end, where the next partition may begin, or have no word in its FAT.
bool WritesOutside(const internal::VolumeIndex& volume, const internal::RewritePlan& plan);

// Where the clusters of a chain lie, in its order; those side by side in one.
std::vector<ByteRun> RunsOf(const std::vector<std::uint16_t>& chain,
                            const internal::ChainTable& table);

// Makes sure that the host has room for what a rewrite writes, and no limit in its way, without
// changing anything. False: errno says why.
[[nodiscard]] bool MakeRoomFor(int image, const std::vector<ByteRun>& runs,
                               std::uint64_t sizeOffset);

// Writes the new content of a file into the image that is open as `image`: `content`, zeros to the
// end of the runs, and the size, in this order. False: errno says why, and a part is written.
[[nodiscard]] bool WriteRuns(int image, const std::vector<ByteRun>& runs, std::uint64_t sizeOffset,
                             std::span<const std::uint8_t> content, const MovedBytes& moved = {});

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_FILE_REWRITE_H_
