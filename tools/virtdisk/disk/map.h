#ifndef QUORBIX_VIRTDISK_TOOL_MAP_H_
#define QUORBIX_VIRTDISK_TOOL_MAP_H_

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "disk/image_tree.h"
#include "disk/volume_view.h"

namespace quorbix::virtdisk::tool {

// What a part of the disk is used for.
enum class Area : std::uint8_t {
  kSystem,     // partition table, boot sector, FATs
  kRoot,       // the fixed root directory
  kDirectory,  // a subdirectory's clusters
  kFile,
  kHidden,  // of an entry that no listing of the library shows
  kFree,
  kLost,  // taken without belonging to an entry, or where a chain is broken
  kBad,   // marked so
};
inline constexpr std::size_t kAreaCount = 8;
const char* AreaName(Area area);

inline constexpr std::uint32_t kNobody = std::numeric_limits<std::uint32_t>::max();

struct ClusterRun {
  std::uint32_t first = 0;
  std::uint32_t count = 0;
};

// A file or directory with clusters, which lie in `runs` in the order of its content.
struct Owner {
  std::string path;
  bool isDirectory = false;
  std::uint32_t size = 0;
  std::vector<ClusterRun> runs;
  bool isHidden = false;

  std::uint64_t Clusters() const;
};

struct ClusterUse {
  Area area = Area::kFree;
  std::uint32_t owner = kNobody;  // index into DiskMap::owners
};

struct DiskMap {
  std::vector<ClusterUse> clusters;  // the first one is cluster 2
  std::vector<Owner> owners;         // in the order of their first clusters on the disk
  std::uint32_t clusterBytes = 0;
  std::uint64_t systemSectors = 0;
  std::uint64_t rootSectors = 0;
};

// Follows every entry's chain. A chain ends as broken where its next cluster does not exist, is
// free or marked bad, or belongs to another chain (or to this one) already; the cluster that leads
// there is drawn as broken. The work is bounded by the number of clusters and entries.
DiskMap MapVolume(const VolumeView& view, const std::vector<Fat16FsEntry>& entries);
DiskMap MapVolume(const VolumeView& view, const ImageTree& tree);

// A cell of the drawing: as much of the disk as `DiskMap` clusters take, counted from its start.
struct Cell {
  Area area = Area::kFree;
  std::uint32_t owner = kNobody;
  std::uint32_t first = 0;  // cluster number, where the cell lies among the clusters
  double filled = 1.0;      // share of its clusters that are in use
  double slack = 0.0;       // share of its bytes that lie behind the ends of files
};

struct Drawing {
  std::vector<Cell> cells;
  std::uint32_t clustersPerCell = 1;
};

// Groups the disk into at most `mostCells` cells, or a few more when the areas do not divide
// evenly; a power of two of clusters goes into each. Lost, broken and bad clusters always show;
// otherwise a cell shows what has the most of its clusters, and free only when nothing else is in
// it.
Drawing DrawCells(const DiskMap& map, std::size_t mostCells);

// Bytes of the files' clusters that lie behind the files' ends.
std::uint64_t SlackBytes(const DiskMap& map);

// Clusters by area; kSystem and kRoot, which have none, count 0.
std::vector<std::uint32_t> CountAreas(const DiskMap& map);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_MAP_H_
