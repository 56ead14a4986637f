#include "disk/map.h"

#include <algorithm>
#include <map>

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint64_t kSectorBytes = 512;

class Mapper {
 public:
  Mapper(const VolumeView& theView, DiskMap& theMap) : view(theView), map(theMap) {}

  void Follow(const Fat16FsEntry& entry) {
    if (entry.firstCluster < kFirstCluster || IsEndOfChain(entry.firstCluster)) return;
    if (!IsUnclaimed(entry.firstCluster)) {
      // Nothing of its own to draw; where two chains meet, the disk is broken.
      if (view.HasCluster(entry.firstCluster)) Break(entry.firstCluster);
      return;
    }
    const auto owner = static_cast<std::uint32_t>(map.owners.size());
    map.owners.push_back({entry.path, entry.isDirectory, entry.size, {}});
    std::uint32_t cluster = entry.firstCluster;
    for (;;) {
      Claim(cluster, owner, entry.isDirectory ? Area::kDirectory : Area::kFile);
      const std::uint16_t next = view.FatWord(cluster);
      if (IsEndOfChain(next)) return;
      if (!IsUnclaimed(next) || next < kFirstCluster) return Break(cluster);
      cluster = next;
    }
  }

  void MarkTheRest() {
    for (std::uint32_t i = 0; i < map.clusters.size(); ++i) {
      ClusterUse& use = map.clusters[i];
      if (use.owner == kNobody && view.FatWord(kFirstCluster + i) != 0) use.area = Area::kLost;
    }
  }

 private:
  ClusterUse& Use(std::uint32_t cluster) { return map.clusters[cluster - kFirstCluster]; }

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
  cell.first = kFirstCluster + static_cast<std::uint32_t>(begin);
  std::map<std::uint32_t, std::size_t> shares;  // clusters by owner
  std::size_t used = 0;
  bool lost = false;
  for (std::size_t i = begin; i < end; ++i) {
    const ClusterUse& use = map.clusters[i];
    if (use.area == Area::kFree) continue;
    ++used;
    lost = lost || use.area == Area::kLost;
    ++shares[use.owner];
  }
  cell.filled = static_cast<double>(used) / static_cast<double>(end - begin);
  if (used == 0) return cell;
  const auto largest =
      std::max_element(shares.begin(), shares.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  cell.owner = largest->first;
  cell.area = Area::kLost;
  if (lost || cell.owner == kNobody) return cell;
  cell.area = map.owners[cell.owner].isDirectory ? Area::kDirectory : Area::kFile;
  return cell;
}

std::uint64_t CellsFor(std::uint64_t amount, std::uint64_t perCell) {
  return amount / perCell + (amount % perCell != 0 ? 1 : 0);
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
    case Area::kFree:
      return "free";
    case Area::kLost:
      return "lost or broken";
  }
  return "";
}

DiskMap MapVolume(const VolumeView& view, const std::vector<Fat16FsEntry>& entries) {
  DiskMap map;
  map.clusters.resize(view.ClusterCount());
  map.clusterBytes = view.ClusterBytes();
  map.systemSectors = view.SystemSectors();
  map.rootSectors = view.RootSectors();
  Mapper mapper(view, map);
  for (const Fat16FsEntry& entry : entries) mapper.Follow(entry);
  mapper.MarkTheRest();
  SortOwnersByPlace(map);
  return map;
}

Drawing DrawCells(const DiskMap& map, std::size_t mostCells) {
  Drawing drawing;
  if (map.clusterBytes == 0) return drawing;
  const std::uint64_t sectorsPerCluster = map.clusterBytes / kSectorBytes;
  const auto cellsAt = [&](std::uint64_t clusters) {
    const std::uint64_t sectors = clusters * sectorsPerCluster;
    return CellsFor(map.systemSectors, sectors) + CellsFor(map.rootSectors, sectors) +
           CellsFor(map.clusters.size(), clusters);
  };
  std::uint64_t perCell = 1;
  while (cellsAt(perCell) > mostCells && perCell < map.clusters.size()) perCell *= 2;
  drawing.clustersPerCell = static_cast<std::uint32_t>(perCell);
  const std::uint64_t sectors = perCell * sectorsPerCluster;
  // A boot sector can claim FATs larger than any drawing.
  const auto areaCells = [&](std::uint64_t amount) {
    return static_cast<std::size_t>(std::min<std::uint64_t>(CellsFor(amount, sectors), mostCells));
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
