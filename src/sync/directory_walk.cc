#include "sync/directory_walk.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "common/byte_order.h"
#include "common/fat_words.h"
#include "fat16/volume_layout.h"
#include "sync/cluster_chain.h"

namespace quorbix::virtdisk::internal {
namespace {

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
    open.push_back({.unread = context.image.Span().subspan(offset, size)});
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

}  // namespace

bool WalkDirectory(const FatContext& context, std::vector<DiskFile>& files) {
  return VolumeWalk(context, files).Run();
}

}  // namespace quorbix::virtdisk::internal
