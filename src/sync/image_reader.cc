#include "sync/image_reader.h"

#include <algorithm>
#include <bitset>
#include <cstddef>
#include <fstream>
#include <ios>
#include <limits>
#include <numeric>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "common/fail.h"
#include "fat16/byte_order.h"
#include "fat16/volume_layout.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr char kCannotOpenImage[] = "Cannot open image: ";
constexpr char kInvalidImageSize[] = "Invalid image size: ";
constexpr char kCannotReadImage[] = "Cannot read image: ";
constexpr char kImageTooSmall[] = "Image too small";
constexpr char kNoSupportedPartition[] = "No supported FAT partition in MBR";
constexpr char kBootSectorOutOfRange[] = "VBR offset out of range";
constexpr char kUnsupportedVolume[] = "Unsupported or invalid FAT BPB";

constexpr std::size_t kClusterNumbers = 65536;

// One bit for every number that a FAT word can hold.
using ClusterSet = std::bitset<kClusterNumbers>;

// The two ways into the bytes that the image itself describes, with their bounds.

std::optional<std::span<const std::uint8_t>> ClusterBytes(const FatContext& context,
                                                          std::uint16_t cluster) {
  const std::uint64_t size =
      std::uint64_t{context.sectorsPerCluster} * std::uint64_t{context.bytesPerSector};
  const std::uint64_t sector =
      std::uint64_t{cluster - fat::kFirstCluster} * context.sectorsPerCluster +
      context.dataStartSector;
  const std::uint64_t offset = sector * context.bytesPerSector;
  if (offset > context.image.size() || size > context.image.size() - offset) return std::nullopt;
  return std::span(context.image).subspan(offset, size);
}

// A word beyond the image ends its chain.
std::uint16_t FatWord(const FatContext& context, std::uint16_t cluster) {
  const std::uint64_t offset = std::uint64_t{context.fatStartSector} * context.bytesPerSector +
                               std::uint64_t{cluster} * fat::kWordBytes;
  if (offset + 1 >= context.image.size()) return fat::kEndOfChain;
  return LoadU16(&context.image[offset]);
}

// Calls `visit` with the bytes of each cluster of a chain until the chain ends or `visit` returns
// false. Returns false when the chain loops or leaves the image before that.
template <class Visit>
bool FollowChain(const FatContext& context, std::uint16_t start, Visit&& visit) {
  ClusterSet visited;
  for (std::uint16_t cluster = start; fat::LeadsToCluster(cluster);
       cluster = FatWord(context, cluster)) {
    if (visited.test(cluster)) return false;
    visited.set(cluster);
    const auto bytes = ClusterBytes(context, cluster);
    if (!bytes) return false;
    if (!visit(*bytes)) return true;
  }
  return true;
}

// Tells whether chains end, and remembers what it has seen, so that all chains of a volume together
// cost one look at each FAT word.
class ChainChecker {
 public:
  explicit ChainChecker(const FatContext& fatContext) : context(fatContext) {}

  bool Ends(std::uint16_t start) {
    std::vector<std::uint16_t> newlySeen;
    std::uint16_t cluster = start;
    while (fat::LeadsToCluster(cluster) && !seen.test(cluster)) {
      seen.set(cluster);
      if (!ClusterBytes(context, cluster)) return false;
      newlySeen.push_back(cluster);
      cluster = FatWord(context, cluster);
    }
    // A cluster that was seen and is not known to be good is on a bad chain, or is one of
    // `newlySeen`: a loop.
    if (fat::LeadsToCluster(cluster) && !good.test(cluster)) return false;
    for (const std::uint16_t member : newlySeen) good.set(member);
    return true;
  }

 private:
  const FatContext& context;
  ClusterSet seen;
  ClusterSet good;
};

std::string_view TextUpToBlank(const std::uint8_t* field, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(field), size);
  return text.substr(0, text.find(' '));
}

// Empty for a slot without a base name, even if it has an extension.
std::string NameOf(const std::uint8_t* slot) {
  std::string name(TextUpToBlank(slot + dir_entry::kBaseName, dir_entry::kBaseNameSize));
  const std::string_view extension =
      TextUpToBlank(slot + dir_entry::kExtension, dir_entry::kExtensionSize);
  if (!name.empty() && !extension.empty()) name.append(".").append(extension);
  return name;
}

// Keeps an image from naming anything outside the folder that its files are written to.
bool IsPathElement(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

// The two-second count stays as it is on the disk: nobody decodes the stamp, it is only compared.
std::uint64_t PackedStamp(std::uint16_t date, std::uint16_t time) {
  const std::uint64_t year = 1980u + (date >> 9);
  const std::uint64_t month = (date >> 5) & 0x0Fu;
  const std::uint64_t day = date & 0x1Fu;
  const std::uint64_t hour = time >> 11;
  const std::uint64_t minute = (time >> 5) & 0x3Fu;
  const std::uint64_t twoSeconds = time & 0x1Fu;
  return (year << 26) | (month << 22) | (day << 17) | (hour << 12) | (minute << 6) | twoSeconds;
}

FileVersion VersionOf(const std::uint8_t* slot) {
  return {.modifiedStamp = PackedStamp(LoadU16(slot + dir_entry::kWriteDate),
                                       LoadU16(slot + dir_entry::kWriteTime)),
          .size = LoadU32(slot + dir_entry::kFileSize),
          .firstCluster = LoadU16(slot + dir_entry::kFirstCluster)};
}

// Walks the whole volume with a stack of its own, so that no image can exhaust the thread's.
class VolumeWalk {
 public:
  VolumeWalk(const FatContext& fatContext, std::vector<DiskFile>& foundFiles)
      : context(fatContext),
        files(foundFiles),
        chains(fatContext),
        slotsLeft(fatContext.image.size() / dir_entry::kSize),
        pathBytesLeft(kPathBytesPerImageByte * fatContext.image.size() + kFreePathBytes) {}

  // False when a bound cut the walk short.
  bool Run() {
    EnterRoot();
    while (!open.empty() && !cutShort) LookAtNextSlot();
    return !cutShort;
  }

 private:
  // A directory whose slots are being looked at.
  struct Directory {
    std::span<const std::uint8_t> unread;  // of the root region, or of `cluster`
    std::uint16_t cluster = 0;             // 0 for the root
    std::size_t parentPathSize = 0;        // what `path` is cut to afterwards
  };

  // The host can name nothing behind a longer path.
  static constexpr std::size_t kLongestPath = 4096;
  // A sound volume stays far below: its names are shorter than a slot, and few are nested deeply.
  static constexpr std::uint64_t kPathBytesPerImageByte = 32;
  static constexpr std::uint64_t kFreePathBytes = std::uint64_t{64} << 20;

  void EnterRoot() {
    const std::uint64_t offset = std::uint64_t{context.rootDirStartSector} * context.bytesPerSector;
    const std::uint64_t size = std::uint64_t{context.rootDirSectors} * context.bytesPerSector;
    if (offset > context.image.size() || size > context.image.size() - offset) return;
    open.push_back({.unread = std::span(context.image).subspan(offset, size)});
  }

  // A directory in cluster 0 would be the root again; it is taken for an empty one.
  void Enter(const std::string& name, std::uint16_t first) {
    if (!fat::LeadsToCluster(first) || entered.test(first)) return;
    entered.set(first);
    if (path.size() + name.size() >= kLongestPath) return;
    if (!chains.Ends(first)) return;
    open.push_back(
        {.unread = *ClusterBytes(context, first), .cluster = first, .parentPathSize = path.size()});
    path += name + '/';
  }

  void Leave() {
    path.resize(open.back().parentPathSize);
    open.pop_back();
  }

  // Null at the end of the directory's chain.
  const std::uint8_t* NextSlot(Directory& directory) const {
    if (directory.unread.empty()) {
      if (directory.cluster == 0) return nullptr;
      directory.cluster = FatWord(context, directory.cluster);
      if (!fat::LeadsToCluster(directory.cluster)) return nullptr;
      directory.unread = *ClusterBytes(context, directory.cluster);  // ChainChecker was content
    }
    const std::uint8_t* slot = directory.unread.data();
    directory.unread = directory.unread.subspan(dir_entry::kSize);
    return slot;
  }

  void LookAtNextSlot() {
    const std::uint8_t* slot = NextSlot(open.back());
    if (slot == nullptr || slot[0] == dir_entry::kNeverUsed) return Leave();
    if (slotsLeft == 0) {
      cutShort = true;
      return;
    }
    --slotsLeft;
    const std::uint8_t attributes = slot[dir_entry::kAttributes];
    // A long-name slot has the label bit too.
    if (slot[0] == dir_entry::kDeleted || (attributes & dir_entry::kAttrVolumeLabel) != 0) return;
    const std::string name = NameOf(slot);
    if (!IsPathElement(name)) return;
    const FileVersion version = VersionOf(slot);
    if ((attributes & dir_entry::kAttrDirectory) != 0) return Enter(name, version.firstCluster);
    const std::size_t pathBytes = path.size() + name.size();
    cutShort = pathBytes > pathBytesLeft;
    if (cutShort) return;
    pathBytesLeft -= pathBytes;
    files.push_back({.relPath = path + name, .version = version});
  }

  const FatContext& context;
  std::vector<DiskFile>& files;
  ChainChecker chains;
  ClusterSet entered;  // first clusters of directories
  std::vector<Directory> open;
  std::string path;  // of the innermost open directory, with "/" after each element
  std::uint64_t slotsLeft;
  std::uint64_t pathBytesLeft;
  bool cutShort = false;
};

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

// Null when no entry has a supported type. Nothing else of the sector is looked at.
const std::uint8_t* FindPartition(const std::vector<std::uint8_t>& image) {
  for (std::size_t i = 0; i < mbr::kPartitionCount; ++i) {
    const std::uint8_t* entry = &image[mbr::kPartitionTable + i * partition_entry::kSize];
    if (partition_entry::IsSupportedType(entry[partition_entry::kType])) return entry;
  }
  return nullptr;
}

void ReadBootSector(const std::uint8_t* sector, FatContext& context) {
  context.bytesPerSector = LoadU16(sector + boot_sector::kBytesPerSector);
  context.sectorsPerCluster = sector[boot_sector::kSectorsPerCluster];
  context.reservedSectors = LoadU16(sector + boot_sector::kReservedSectors);
  context.fatCount = sector[boot_sector::kFatCount];
  context.rootEntryCount = LoadU16(sector + boot_sector::kRootEntryCount);
  context.sectorsPerFat = LoadU16(sector + boot_sector::kSectorsPerFat);
}

// A start sector near 2^32 makes these sums wrap; every access checks what comes of it.
void DeriveSectors(FatContext& context) {
  context.rootDirSectors =
      (context.rootEntryCount * static_cast<std::uint32_t>(dir_entry::kSize) + kSectorBytes - 1) /
      kSectorBytes;
  context.fatStartSector = context.partitionStartLba + context.reservedSectors;
  context.rootDirStartSector = context.fatStartSector + context.fatCount * context.sectorsPerFat;
  context.dataStartSector = context.rootDirStartSector + context.rootDirSectors;
}

}  // namespace

bool LoadImageBytes(const fs::path& path, std::vector<std::uint8_t>& bytes, std::string& error) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) return Fail(error, kCannotOpenImage + path.native());
  const std::streamoff size = in.tellg();
  if (size <= 0 || size % kSectorBytes != 0) return Fail(error, kInvalidImageSize + path.native());
  in.seekg(0);
  bytes.assign(static_cast<std::size_t>(size), 0);
  in.read(reinterpret_cast<char*>(bytes.data()), size);
  return in.good() || Fail(error, kCannotReadImage + path.native());
}

bool ParseLoadedImage(FatContext& context, std::string& error) {
  const std::vector<std::uint8_t>& image = context.image;
  if (image.size() < kSectorBytes) return Fail(error, kImageTooSmall);
  const std::uint8_t* partition = FindPartition(image);
  if (partition == nullptr) return Fail(error, kNoSupportedPartition);
  context.partitionStartLba = LoadU32(partition + partition_entry::kStartLba);
  const std::uint64_t start = std::uint64_t{context.partitionStartLba} * kSectorBytes;
  if (start > image.size() - kSectorBytes) return Fail(error, kBootSectorOutOfRange);
  ReadBootSector(&image[start], context);
  if (context.bytesPerSector != kSectorBytes || context.sectorsPerCluster == 0 ||
      context.fatCount == 0 || context.sectorsPerFat == 0) {
    return Fail(error, kUnsupportedVolume);
  }
  DeriveSectors(context);
  return true;
}

bool ParseFatContext(const fs::path& path, FatContext& context, std::string& error) {
  return LoadImageBytes(path, context.image, error) && ParseLoadedImage(context, error);
}

bool ReadClusterChain(const FatContext& context, std::uint16_t start,
                      std::vector<std::uint8_t>& bytes, std::uint32_t limit) {
  bytes.clear();
  return FollowChain(context, start, [&](std::span<const std::uint8_t> cluster) {
    const std::size_t wanted = limit == 0 ? cluster.size() : limit - bytes.size();
    const auto part = cluster.first(std::min(wanted, cluster.size()));
    bytes.insert(bytes.end(), part.begin(), part.end());
    return limit == 0 || bytes.size() < limit;
  });
}

bool WalkDirectory(const FatContext& context, std::vector<DiskFile>& files) {
  return VolumeWalk(context, files).Run();
}

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
