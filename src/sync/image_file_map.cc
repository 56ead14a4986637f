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

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

// A size of 0 means the whole chain.
std::uint64_t LimitOf(const FileVersion& version) {
  return version.size == 0 ? kNoLimit : version.size;
}

// The files of a listing that begin in one cluster, shortest first, so that each is a beginning of
// the next: however many there are, one reading of the chain serves them all.
class SharedBeginning {
 public:
  SharedBeginning(std::span<const std::size_t> filesByLimit, std::vector<DiskFile>& listedFiles)
      : group(filesByLimit), files(listedFiles) {}

  bool AllSettled() const { return settled == group.size(); }
  std::span<const std::size_t> Settled() const { return group.first(settled); }
  std::uint64_t SettledBytes() const { return settledBytes; }  // of all these files together
  std::uint64_t Missing() const { return LimitOf(files[group.back()].version) - held; }

  // Goes on with the next bytes of the chain. Every file that ends within them gets its hash.
  void Take(std::span<const std::uint8_t> bytes) {
    while (!AllSettled() && LimitOf(Next()) - held <= bytes.size()) {
      const auto last = static_cast<std::size_t>(LimitOf(Next()) - held);
      Hash(bytes.first(last));
      bytes = bytes.subspan(last);
      Settle();
    }
    if (!AllSettled()) Hash(bytes);
  }

  // The chain has ended, and with it every file that is left.
  void TakeEnd() {
    while (!AllSettled()) Settle();
  }

 private:
  FileVersion& Next() { return files[group[settled]].version; }

  void Hash(std::span<const std::uint8_t> bytes) {
    hash = HashBytes(bytes, hash);
    held += bytes.size();
  }

  void Settle() {
    Next().contentHash = hash;
    settledBytes += held;
    ++settled;
  }

  std::span<const std::size_t> group;
  std::vector<DiskFile>& files;
  std::uint64_t hash = kEmptyHash;
  std::uint64_t held = 0;  // bytes that `hash` covers
  std::size_t settled = 0;
  std::uint64_t settledBytes = 0;
};

// Hashes the files of a volume, each in place. Files that share clusters cannot make that, nor the
// copying of all of them afterwards, take many times the image's size.
class FileHashes {
 public:
  FileHashes(const FatContext& fatContext, std::vector<DiskFile>& listedFiles)
      : context(fatContext),
        files(listedFiles),
        readable(listedFiles.size(), false),
        readBytesLeft(kMostReadings * fatContext.image.size()),
        fileBytesLeft(kMostReadings * fatContext.image.size()) {}

  // False when the files share too much. Sets the hash of every file whose chain can be read.
  bool Run() {
    const std::vector<std::size_t> order = ByClusterAndLimit();
    for (auto begin = order.begin(); begin != order.end();) {
      const std::uint16_t cluster = files[*begin].version.firstCluster;
      const auto end = std::find_if(begin, order.end(), [&](std::size_t index) {
        return files[index].version.firstCluster != cluster;
      });
      if (!HashFromOneCluster(cluster, std::span(begin, end))) return false;
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

  // False when that takes more than is left.
  bool HashFromOneCluster(std::uint16_t cluster, std::span<const std::size_t> group) {
    SharedBeginning beginning(group, files);
    ChainPieces chain(context, cluster);
    while (!beginning.AllSettled()) {
      const auto piece = chain.Next(beginning.Missing());
      if (piece.empty()) break;
      if (!Spend(piece.size(), readBytesLeft)) return false;
      beginning.Take(piece);
    }
    if (!chain.IsBroken()) beginning.TakeEnd();
    for (const std::size_t index : beginning.Settled()) readable[index] = true;
    return Spend(beginning.SettledBytes(), fileBytesLeft);
  }

  static bool Spend(std::uint64_t bytes, std::uint64_t& bytesLeft) {
    if (bytes > bytesLeft) return false;
    bytesLeft -= bytes;
    return true;
  }

  const FatContext& context;
  std::vector<DiskFile>& files;
  std::vector<bool> readable;
  std::uint64_t readBytesLeft;  // for chains, each read once for all files that begin in it
  std::uint64_t fileBytesLeft;  // for files, each counted whole
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
