#include "disk/file_rewrite.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

#include "check/volume_claim.h"
#include "common/byte_order.h"
#include "fat16/volume_layout.h"
#include "host/piecewise.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::size_t kSizeBytes = 4;  // of an entry's size field
constexpr std::size_t kAtOnce = std::size_t{1} << 20;

bool WriteAt(int file, std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ::ssize_t put = ::pwrite(file, bytes.data(), bytes.size(), static_cast<::off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    offset += static_cast<std::uint64_t>(put);
    bytes = bytes.subspan(static_cast<std::size_t>(put));
  }
  return true;
}

bool WriteInPiecesAt(int file, std::uint64_t offset, std::span<const std::uint8_t> bytes,
                     const MovedBytes& moved) {
  while (!bytes.empty()) {
    const auto piece = bytes.first(std::min(bytes.size(), kAtOnce));
    if (!WriteAt(file, offset, piece)) return false;
    if (moved) moved(piece.size());
    offset += piece.size();
    bytes = bytes.subspan(piece.size());
  }
  return true;
}

bool WriteZerosAt(int file, std::uint64_t offset, std::uint64_t count, const MovedBytes& moved) {
  const std::vector<std::uint8_t> zeros(std::min<std::uint64_t>(count, kAtOnce));
  while (count > 0) {
    const std::uint64_t part = std::min<std::uint64_t>(count, zeros.size());
    if (!WriteInPiecesAt(file, offset, std::span(zeros).first(part), moved)) return false;
    offset += part;
    count -= part;
  }
  return true;
}

// The number after that of a volume's last cluster: as many as its boot sector tells of, its
// partition holds and its FAT has words for. 0xFFF8 at most.
std::uint64_t FirstBeyond(const Fat16FsInfo& info) {
  std::uint64_t end = std::min<std::uint64_t>(
      std::uint64_t{info.sectorsPerFat} * internal::kSectorBytes / internal::fat::kWordBytes,
      internal::fat::kFirstEndOfChain);
  Fat16FsInfo inPartition = info;
  inPartition.totalSectors = info.partitionSectorCount;
  for (const Fat16FsInfo& bound : {info, inPartition}) {
    if (bound.totalSectors == 0) continue;  // which says nothing
    end = std::min(end, internal::fat::kFirstCluster + internal::ClaimedClusters(bound));
  }
  return end;
}

}  // namespace

bool WritesOverOthers(const internal::VolumeIndex& volume, const internal::RewritePlan& plan) {
  std::vector<bool> isOwn(std::size_t{1} << 16);  // by cluster
  for (const std::uint16_t cluster : plan.chain) isOwn[cluster] = true;
  const std::uint64_t ownSlot = plan.sizeOffset - internal::dir_entry::kFileSize;
  const auto beginsThere = [&](const auto& entry) {
    return entry.dirEntryOffset != ownSlot && isOwn[entry.firstCluster];
  };
  // What lies behind the FAT's words is no word.
  const std::uint64_t end = FirstBeyond(volume.Info());
  for (std::uint16_t cluster = internal::fat::kFirstCluster; cluster < end; ++cluster) {
    if (!isOwn[cluster] && isOwn[volume.Chains().Next(cluster)]) return true;
  }
  return std::any_of(volume.Records().begin(), volume.Records().end(), beginsThere) ||
         std::any_of(volume.HiddenEntries().begin(), volume.HiddenEntries().end(), beginsThere);
}

bool WritesOutside(const internal::VolumeIndex& volume, const internal::RewritePlan& plan) {
  const std::uint64_t end = FirstBeyond(volume.Info());
  return std::any_of(plan.chain.begin(), plan.chain.end(),
                     [end](std::uint16_t cluster) { return cluster >= end; });
}

std::vector<ByteRun> RunsOf(const std::vector<std::uint16_t>& chain,
                            const internal::ChainTable& table) {
  std::vector<ByteRun> runs;
  for (const std::uint16_t cluster : chain) {
    const std::uint64_t offset = table.ClusterOffset(cluster);
    if (!runs.empty() && runs.back().offset + runs.back().bytes == offset) {
      runs.back().bytes += table.ClusterBytes();
    } else {
      runs.push_back({offset, table.ClusterBytes()});
    }
  }
  return runs;
}

bool MakeRoomFor(int image, const std::vector<ByteRun>& runs, std::uint64_t sizeOffset) {
  return MakeRoom(image, sizeOffset, kSizeBytes) &&
         std::all_of(runs.begin(), runs.end(), [image](const ByteRun& run) {
           return MakeRoom(image, run.offset, run.bytes);
         });
}

bool WriteRuns(int image, const std::vector<ByteRun>& runs, std::uint64_t sizeOffset,
               std::span<const std::uint8_t> content, const MovedBytes& moved) {
  std::array<std::uint8_t, kSizeBytes> size{};
  internal::StoreU32(size.data(), static_cast<std::uint32_t>(content.size()));
  for (const ByteRun& run : runs) {
    const std::uint64_t part = std::min<std::uint64_t>(content.size(), run.bytes);
    if (!WriteInPiecesAt(image, run.offset, content.first(part), moved) ||
        !WriteZerosAt(image, run.offset + part, run.bytes - part, moved)) {
      return false;
    }
    content = content.subspan(part);
  }
  return WriteAt(image, sizeOffset, size);
}

}  // namespace quorbix::virtdisk::tool
