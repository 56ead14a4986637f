#include "disk/map.h"

#include <algorithm>
#include <map>

#include "common/divide_up.h"
#include "common/fat_words.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fat = internal::fat;
using internal::kSectorBytes;

Area AreaOf(const Owner& owner) {
  if (owner.isHidden) return Area::kHidden;
  return owner.isDirectory ? Area::kDirectory : Area::kFile;
}

// Bytes of its last cluster that a file does not fill.
std::uint64_t SlackOf(const Owner& owner, std::uint64_t clusterBytes) {
  const std::uint64_t held = owner.Clusters() * clusterBytes;
  return owner.isDirectory || owner.size >= held ? 0 : std::min(held - owner.size, clusterBytes);
}

std::uint32_t LastCluster(const Owner& owner) {
  return owner.runs.back().first + owner.runs.back().count - 1;
}

class Mapper {
 public:
  Mapper(const VolumeView& theView, DiskMap& theMap) : view(theView), map(theMap) {}

  void Follow(const Fat16FsEntry& entry, bool isHidden) {
    if (!fat::LeadsToCluster(entry.firstCluster)) return;
    if (!IsUnclaimed(entry.firstCluster)) {
      // Nothing of its own to draw; where two chains meet, the disk is broken.
      if (view.HasCluster(entry.firstCluster)) Break(entry.firstCluster);
      return;
    }
    const auto owner = static_cast<std::uint32_t>(map.owners.size());
    map.owners.push_back({entry.path, entry.isDirectory, entry.size, {}, isHidden});
    const Area area = AreaOf(map.owners.back());
    std::uint32_t cluster = entry.firstCluster;
    for (;;) {
      Claim(cluster, owner, area);
      const std::uint16_t next = view.FatWord(cluster);
      if (fat::IsEndOfChain(next)) return;
      if (!IsUnclaimed(next) || next < fat::kFirstCluster) return Break(cluster);
      cluster = next;
    }
  }

  void MarkTheRest() {
    for (std::uint32_t i = 0; i < map.clusters.size(); ++i) {
      ClusterUse& use = map.clusters[i];
      const std::uint16_t word = view.FatWord(fat::kFirstCluster + i);
      if (use.owner != kNobody || fat::IsFree(word)) continue;
      use.area = fat::IsBad(word) ? Area::kBad : Area::kLost;
    }
  }

 private:
  ClusterUse& Use(std::uint32_t cluster) { return map.clusters[cluster - fat::kFirstCluster]; }

  bool IsUnclaimed(std::uint32_t cluster) {
    return view.HasCluster(cluster) && Use(cluster).owner == kNobody;
  }

  void Claim(std::uint32_t cluster, std::uint32_t owner, Area area) {
    Use(cluster) = {area, owner};
    std::vector<ClusterRun>& runs = map.owners[owner].runs;
    const bool goesOn = !runs.empty() && runs.back().first + runs.back().count == cluster;
    if (goesOn) {
      ++runs.back().count;
    } else {
      runs.push_back({cluster, 1});
    }
  }

  void Break(std::uint32_t cluster) { Use(cluster).area = Area::kLost; }

  const VolumeView& view;
  DiskMap& map;
};

Cell DrawGroup(const DiskMap& map, std::size_t begin, std::size_t end) {
  Cell cell;
  cell.first = fat::kFirstCluster + static_cast<std::uint32_t>(begin);
  std::map<std::uint32_t, std::size_t> shares;  // clusters by owner
  std::size_t used = 0;
  std::uint64_t slack = 0;
  bool lost = false;
  bool bad = false;
  for (std::size_t i = begin; i < end; ++i) {
    const ClusterUse& use = map.clusters[i];
    if (use.area == Area::kFree) continue;
    ++used;
    lost = lost || use.area == Area::kLost;
    bad = bad || use.area == Area::kBad;
    ++shares[use.owner];
    if (use.owner == kNobody) continue;
    const Owner& owner = map.owners[use.owner];
    if (LastCluster(owner) == fat::kFirstCluster + i) slack += SlackOf(owner, map.clusterBytes);
  }
  const std::uint64_t bytes = std::uint64_t{map.clusterBytes} * (end - begin);
  if (bytes != 0) cell.slack = static_cast<double>(slack) / static_cast<double>(bytes);
  cell.filled = static_cast<double>(used) / static_cast<double>(end - begin);
  if (used == 0) return cell;
  const auto largest =
      std::max_element(shares.begin(), shares.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  cell.owner = largest->first;
  cell.area = lost ? Area::kLost : Area::kBad;
  if (lost || bad) return cell;
  cell.area = AreaOf(map.owners[cell.owner]);
  return cell;
}

void SortOwnersByPlace(DiskMap& map) {
  std::vector<std::uint32_t> order(map.owners.size());
  for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
    return map.owners[a].runs.front().first < map.owners[b].runs.front().first;
  });
  std::vector<std::uint32_t> rank(order.size());
  std::vector<Owner> sorted;
  sorted.reserve(order.size());
  for (std::uint32_t i = 0; i < order.size(); ++i) {
    rank[order[i]] = i;
    sorted.push_back(std::move(map.owners[order[i]]));
  }
  map.owners = std::move(sorted);
  for (ClusterUse& use : map.clusters) {
    if (use.owner != kNobody) use.owner = rank[use.owner];
  }
}

// Directories and files first: a hidden entry that shares their clusters is the odd one.
template <class IsHidden>
DiskMap MapEntries(const VolumeView& view, const std::vector<Fat16FsEntry>& entries,
                   const IsHidden& isHidden) {
  DiskMap map;
  map.clusters.resize(view.ClusterCount());
  map.clusterBytes = view.ClusterBytes();
  map.systemSectors = view.SystemSectors();
  map.rootSectors = view.RootSectors();
  Mapper mapper(view, map);
  for (const bool wantsHidden : {false, true}) {
    for (const Fat16FsEntry& entry : entries) {
      if (isHidden(entry) == wantsHidden) mapper.Follow(entry, wantsHidden);
    }
  }
  mapper.MarkTheRest();
  SortOwnersByPlace(map);
  return map;
}

}  // namespace

const char* AreaName(Area area) {
  switch (area) {
    case Area::kSystem:
      return "boot and FATs";
    case Area::kRoot:
      return "root directory";
    case Area::kDirectory:
      return "directories";
    case Area::kFile:
      return "files";
    case Area::kHidden:
      return "hidden";
    case Area::kFree:
      return "free";
    case Area::kLost:
      return "lost or broken";
    case Area::kBad:
      return "marked bad";
  }
  return "";
}

std::uint64_t Owner::Clusters() const {
  std::uint64_t clusters = 0;
  for (const ClusterRun& run : runs) clusters += run.count;
  return clusters;
}

DiskMap MapVolume(const VolumeView& view, const std::vector<Fat16FsEntry>& entries) {
  return MapEntries(view, entries, [](const Fat16FsEntry&) { return false; });
}

DiskMap MapVolume(const VolumeView& view, const ImageTree& tree) {
  return MapEntries(view, tree.Entries(),
                    [&](const Fat16FsEntry& entry) { return tree.IsHidden(entry); });
}

std::uint64_t SlackBytes(const DiskMap& map) {
  std::uint64_t bytes = 0;
  for (const Owner& owner : map.owners) bytes += SlackOf(owner, map.clusterBytes);
  return bytes;
}

Drawing DrawCells(const DiskMap& map, std::size_t mostCells) {
  Drawing drawing;
  if (map.clusterBytes == 0) return drawing;
  const std::uint64_t sectorsPerCluster = map.clusterBytes / kSectorBytes;
  const auto cellsAt = [&](std::uint64_t clusters) {
    const std::uint64_t sectors = clusters * sectorsPerCluster;
    return internal::DivideUp(map.systemSectors, sectors) +
           internal::DivideUp(map.rootSectors, sectors) +
           internal::DivideUp(map.clusters.size(), clusters);
  };
  std::uint64_t perCell = 1;
  while (cellsAt(perCell) > mostCells && perCell < map.clusters.size()) perCell *= 2;
  drawing.clustersPerCell = static_cast<std::uint32_t>(perCell);
  const std::uint64_t sectors = perCell * sectorsPerCluster;
  // A boot sector can claim FATs larger than any drawing.
  const auto areaCells = [&](std::uint64_t amount) {
    return static_cast<std::size_t>(
        std::min<std::uint64_t>(internal::DivideUp(amount, sectors), mostCells));
  };
  drawing.cells.assign(areaCells(map.systemSectors), {Area::kSystem, kNobody, 0, 1.0});
  drawing.cells.resize(drawing.cells.size() + areaCells(map.rootSectors),
                       {Area::kRoot, kNobody, 0, 1.0});
  for (std::size_t begin = 0; begin < map.clusters.size(); begin += perCell) {
    const std::size_t end = std::min<std::size_t>(map.clusters.size(), begin + perCell);
    drawing.cells.push_back(DrawGroup(map, begin, end));
  }
  return drawing;
}

std::vector<std::uint32_t> CountAreas(const DiskMap& map) {
  std::vector<std::uint32_t> counts(kAreaCount);
  for (const ClusterUse& use : map.clusters) ++counts[static_cast<std::size_t>(use.area)];
  return counts;
}

}  // namespace quorbix::virtdisk::tool
