#include "sync/image_file_map.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <span>
#include <string>
#include <utility>

#include "sync/cluster_chain.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal {
namespace {

std::uint64_t LimitOf(const FileVersion& version) {
  return version.size == 0 ? std::numeric_limits<std::uint64_t>::max() : version.size;
}

// Hashes the files of a volume, each in place. Files that share clusters cannot make that take many
// times the image's size.
class FileHashes {
 public:
  FileHashes(const FatContext& fatContext, std::vector<DiskFile>& listedFiles)
      : context(fatContext),
        files(listedFiles),
        readable(listedFiles.size(), false),
        bytesLeft(kMostReadings * fatContext.image.size()) {}

  // False when the files share too much. Sets the hash of every file whose chain can be read.
  bool Run() {
    const std::vector<std::size_t> order = ByClusterAndLimit();
    for (auto begin = order.begin(); begin != order.end();) {
      const std::uint16_t cluster = files[*begin].version.firstCluster;
      const auto end = std::find_if(begin, order.end(), [&](std::size_t index) {
        return files[index].version.firstCluster != cluster;
      });
      HashFromOneCluster(std::span(begin, end));
      if (sharesTooMuch) return false;
      begin = end;
    }
    return true;
  }

  bool IsReadable(std::size_t index) const { return readable[index]; }

 private:
  // Sound files share nothing: all of them together are read once.
  static constexpr std::uint64_t kMostReadings = 8;

  std::vector<std::size_t> ByClusterAndLimit() const {
    std::vector<std::size_t> order(files.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
      const FileVersion& first = files[a].version;
      const FileVersion& second = files[b].version;
      return std::pair(first.firstCluster, LimitOf(first)) <
             std::pair(second.firstCluster, LimitOf(second));
    });
    return order;
  }

  // Files that begin in the same cluster, ordered by limit, are beginnings of one another: however
  // many there are, the chain is read once.
  void HashFromOneCluster(std::span<const std::size_t> group) {
    std::uint64_t hash = kEmptyHash;
    std::uint64_t held = 0;  // bytes that `hash` covers
    const auto settle = [&](std::size_t index) {
      files[index].version.contentHash = hash;
      readable[index] = true;
      group = group.subspan(1);
    };
    const auto visit = [&](std::span<const std::uint8_t> bytes) {
      sharesTooMuch = bytes.size() > bytesLeft;
      if (sharesTooMuch) return false;
      bytesLeft -= bytes.size();
      while (!group.empty() && LimitOf(files[group.front()].version) - held <= bytes.size()) {
        const std::size_t part = LimitOf(files[group.front()].version) - held;
        hash = HashBytes(bytes.first(part), hash);
        held += part;
        bytes = bytes.subspan(part);
        settle(group.front());
      }
      if (group.empty()) return false;
      hash = HashBytes(bytes, hash);
      held += bytes.size();
      return true;
    };
    if (!FollowChain(context, files[group.front()].version.firstCluster, visit)) return;
    while (!sharesTooMuch && !group.empty()) settle(group.front());
  }

  const FatContext& context;
  std::vector<DiskFile>& files;
  std::vector<bool> readable;
  std::uint64_t bytesLeft;
  bool sharesTooMuch = false;
};

}  // namespace

bool BuildImageFileMap(const FatContext& context, std::vector<DiskFile>& files,
                       VersionMap& versions) {
  files.clear();
  versions.clear();
  if (!WalkDirectory(context, files)) return false;
  FileHashes hashes(context, files);
  if (!hashes.Run()) return false;
  versions.reserve(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (!hashes.IsReadable(i)) continue;
    versions.insert_or_assign(KeyFromRelPath(files[i].relPath), files[i].version);
  }
  return true;
}

}  // namespace quorbix::virtdisk::internal
