#include "quorbix/virtdisk/fat16_fs_image.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "browser/fat16_fs_image_impl.h"
#include "browser/path_text.h"
#include "browser/release_slack.h"
#include "browser/text_matcher.h"
#include "common/byte_order.h"
#include "common/fail.h"
#include "common/partition_types.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk {
namespace {

using internal::Fail;
using internal::LoadU16;
using internal::LoadU32;
namespace boot_sector = internal::boot_sector;
namespace fat = internal::fat;
namespace mbr = internal::mbr;
namespace partition_entry = internal::partition_entry;

constexpr std::string_view kImageTooSmall = "image too small";
constexpr std::string_view kBootSectorOutOfRange = "vbr offset out of range";
constexpr std::string_view kBadBpb = "unsupported or invalid FAT16 BPB";
constexpr std::string_view kDirectoryNotFound = "directory not found";
constexpr std::string_view kEmptyQuery = "empty query";
constexpr std::string_view kFileNotFound = "file not found";
constexpr std::string_view kIsDirectory = "path is a directory";
constexpr std::string_view kTooLong = "new file content exceeds allocated cluster chain";
constexpr std::string_view kNoChain = "file has no allocated cluster chain";

constexpr std::uint64_t kMostFileBytes = 0xFFFFFFFF;  // what DIR_FileSize can say

bool ComesBefore(const Fat16FsEntry& a, const Fat16FsEntry& b) {
  if (a.isDirectory != b.isDirectory) return a.isDirectory;
  return a.path < b.path;
}

bool HasSmallerPath(const Fat16FsEntry& a, const Fat16FsEntry& b) { return a.path < b.path; }

}  // namespace

bool Fat16FsImage::Impl::Parse(std::string& err) {
  try {
    const bool parsed = ParseOrThrow(err);
    ReleaseSlack();
    return parsed;
  } catch (...) {
    // Out of memory half way: the tables may be out of step, so none of them stays.
    ReleaseIndex();
    throw;
  }
}

void Fat16FsImage::Impl::BeginIndex() noexcept {
  index.clear();
  paths.Clear();
  paths.KnowRoot();
  chainLengths.clear();
}

void Fat16FsImage::Impl::ReleaseSlack() {
  internal::ReleaseSlack(index);
  paths.ReleaseSlack();
  internal::ReleaseSlack(chainLengths);
}

void Fat16FsImage::Impl::ReleaseIndex() noexcept {
  index = std::vector<EntryRecord>();
  paths = internal::PathTable();
  paths.KnowRoot();
  chainLengths = std::vector<std::uint16_t>();
}

bool Fat16FsImage::Impl::ParseOrThrow(std::string& err) {
  err.clear();
  BeginIndex();
  info = Fat16FsInfo{};
  if (image.size() < internal::kSectorBytes) return Fail(err, kImageTooSmall);
  if (!LocateVolume(err)) return false;
  ReadBootSector();
  if (!HasUsableGeometry()) return Fail(err, kBadBpb);
  DeriveGeometry();
  MeasureChains();
  return WalkDirectory(err);
}

bool Fat16FsImage::Impl::LocateVolume(std::string& err) {
  const bool isSigned = std::equal(std::begin(internal::kSignatureBytes),
                                   std::end(internal::kSignatureBytes), &image[mbr::kSignature]);
  if (!isSigned) return true;
  for (std::size_t i = 0; i < mbr::kPartitionCount; ++i) {
    const std::uint8_t* entry = &image[mbr::kPartitionTable + i * partition_entry::kSize];
    const std::uint8_t type = entry[partition_entry::kType];
    const std::uint32_t startLba = LoadU32(entry + partition_entry::kStartLba);
    const std::uint64_t offset = std::uint64_t{startLba} * internal::kSectorBytes;
    if (!partition_entry::IsSupportedType(type) || startLba == 0 || offset >= image.size()) {
      continue;
    }
    info.partitioned = true;
    info.partitionType = type;
    info.partitionStartLba = startLba;
    info.partitionSectorCount = LoadU32(entry + partition_entry::kSectorCount);
    info.volumeOffset = offset;
    return image.size() - offset >= internal::kSectorBytes || Fail(err, kBootSectorOutOfRange);
  }
  return true;
}

void Fat16FsImage::Impl::ReadBootSector() {
  const std::uint8_t* boot = &image[info.volumeOffset];
  info.bytesPerSector = LoadU16(boot + boot_sector::kBytesPerSector);
  info.sectorsPerCluster = boot[boot_sector::kSectorsPerCluster];
  info.reservedSectors = LoadU16(boot + boot_sector::kReservedSectors);
  info.fatCount = boot[boot_sector::kFatCount];
  info.rootEntryCount = LoadU16(boot + boot_sector::kRootEntryCount);
  info.sectorsPerFat = LoadU16(boot + boot_sector::kSectorsPerFat);
  info.totalSectors = LoadU16(boot + boot_sector::kTotalSectors16);
  if (info.totalSectors == 0) info.totalSectors = LoadU32(boot + boot_sector::kTotalSectors32);
  info.fileSystemType = internal::TrimPaddedAscii(boot + boot_sector::kFileSystemType,
                                                  boot_sector::kFileSystemTypeSize);
  info.volumeLabel =
      internal::TrimPaddedAscii(boot + boot_sector::kVolumeLabel, boot_sector::kVolumeLabelSize);
}

// Deliberately no more than this: disks with other oddities are read as far as they go.
bool Fat16FsImage::Impl::HasUsableGeometry() const {
  return info.bytesPerSector == internal::kSectorBytes && info.sectorsPerCluster != 0 &&
         info.fatCount != 0 && info.rootEntryCount != 0 && info.sectorsPerFat != 0;
}

void Fat16FsImage::Impl::DeriveGeometry() {
  const std::uint32_t rootBytes = info.rootEntryCount * std::uint32_t{internal::dir_entry::kSize};
  info.fatStartSector = info.partitionStartLba + info.reservedSectors;
  info.rootDirStartSector = info.fatStartSector + std::uint32_t{info.fatCount} * info.sectorsPerFat;
  info.rootDirSectors = (rootBytes + internal::kSectorBytes - 1) / internal::kSectorBytes;
  info.dataStartSector = info.rootDirStartSector + info.rootDirSectors;
}

bool Fat16FsImage::Impl::ReadClusterChain(std::uint16_t start, std::vector<std::uint8_t>& content,
                                          std::uint32_t limit, std::string& err) const {
  content.clear();
  std::vector<std::uint16_t> chain;
  if (!CollectClusterChain(start, chain, err)) return false;
  const std::uint64_t total = chain.size() * ClusterBytes();
  std::uint64_t wanted = limit == 0 ? total : std::min<std::uint64_t>(total, limit);
  content.reserve(wanted);
  for (auto cluster = chain.begin(); wanted > 0; ++cluster) {
    const std::uint64_t part = std::min(wanted, ClusterBytes());
    const std::uint8_t* data = &image[ClusterOffset(*cluster)];
    content.insert(content.end(), data, data + part);
    wanted -= part;
  }
  return true;
}

void Fat16FsImage::Impl::WriteClusterChain(const std::vector<std::uint16_t>& chain,
                                           const std::vector<std::uint8_t>& content) {
  auto next = content.begin();
  for (const std::uint16_t cluster : chain) {
    std::uint8_t* data = &image[ClusterOffset(cluster)];
    const auto left = static_cast<std::uint64_t>(content.end() - next);
    const std::uint64_t part = std::min(left, ClusterBytes());
    std::copy_n(next, part, data);
    std::fill(data + part, data + ClusterBytes(), std::uint8_t{0});
    next += static_cast<std::ptrdiff_t>(part);
  }
}

Fat16FsImage::Fat16FsImage() : impl(std::make_unique<Impl>()) {}

Fat16FsImage::~Fat16FsImage() = default;

bool Fat16FsImage::LoadFromBytes(const std::vector<std::uint8_t>& image, std::string& err) {
  if (internal::WastesMemory(impl->image.capacity(), image.size())) {
    impl->image = std::vector<std::uint8_t>(image);
  } else {
    impl->image = image;
  }
  return impl->Parse(err);
}

const Fat16FsInfo& Fat16FsImage::Info() const { return impl->info; }

const std::vector<std::uint8_t>& Fat16FsImage::ImageBytes() const { return impl->image; }

bool Fat16FsImage::ListDirectory(const std::string& path, std::vector<Fat16FsEntry>& results,
                                 std::string& err) const {
  // Looked up before `results` goes, in which `path` may lie.
  const auto key = impl->paths.FindDirectory(internal::NormalizePath(path));
  results.clear();
  err.clear();
  if (!key) return Fail(err, kDirectoryNotFound);
  for (const Impl::EntryRecord& record : impl->index) {
    if (record.parentKey == *key) results.push_back(record.Entry(impl->PathOf(record)));
  }
  std::stable_sort(results.begin(), results.end(), ComesBefore);
  return true;
}

bool Fat16FsImage::Search(const std::string& query, std::vector<Fat16FsEntry>& results,
                          std::string& err) const {
  // Taken before `results` goes, in which `query` may lie. No path has more bytes than this, and
  // the matcher's memory grows with them.
  const internal::TextMatcher matcher(std::string_view(query).substr(0, impl->LongestPath() + 1));
  results.clear();
  err.clear();
  if (matcher.IsMatch(internal::TextMatcher::kStart)) return Fail(err, kEmptyQuery);

  // The records come depth first, so that each one's path begins with a part of the path before
  // it, and the search in it goes on where it stood at the end of its directory's path. So the work
  // grows neither with the depth nor with the query.
  std::string path;
  std::vector<internal::TextMatcher::State> states(impl->index.size());
  for (std::size_t i = 0; i < impl->index.size(); ++i) {
    const Impl::EntryRecord& record = impl->index[i];
    const std::size_t parentLength = record.pathLength - record.nameLength - std::size_t{1};
    path.resize(parentLength);
    path.append("/").append(record.Name());
    const bool inRoot = record.parent == Impl::kNoRecord;
    states[i] = matcher.Advance(inRoot ? internal::TextMatcher::kStart : states[record.parent],
                                std::string_view(path).substr(parentLength));
    if (matcher.IsMatch(states[i])) results.push_back(record.Entry(path));
  }
  std::stable_sort(results.begin(), results.end(), HasSmallerPath);
  return true;
}

bool Fat16FsImage::ReadFile(const std::string& path, std::vector<std::uint8_t>& content,
                            std::string& err) const {
  const Impl::EntryRecord* record = impl->FindRecord(path);
  content.clear();
  err.clear();
  if (record == nullptr) return Fail(err, kFileNotFound);
  if (record->IsDirectory()) return Fail(err, kIsDirectory);
  if (record->size == 0) return true;
  return impl->ReadClusterChain(record->firstCluster, content, record->size, err);
}

bool Fat16FsImage::WriteExistingFile(const std::string& path,
                                     const std::vector<std::uint8_t>& newContent,
                                     std::string& err) {
  const Impl::EntryRecord* record = impl->FindRecord(path);
  err.clear();
  if (record == nullptr) return Fail(err, kFileNotFound);
  if (record->IsDirectory()) return Fail(err, kIsDirectory);
  if (newContent.size() > std::min(record->allocatedBytes, kMostFileBytes)) {
    return Fail(err, kTooLong);
  }
  if (record->firstCluster < fat::kFirstCluster) {
    if (!newContent.empty()) return Fail(err, kNoChain);
  } else {
    std::vector<std::uint16_t> chain;
    if (!impl->CollectClusterChain(record->firstCluster, chain, err)) return false;
    impl->WriteClusterChain(chain, newContent);
  }
  // The slot was read from these bytes, so that its size field lies inside them.
  internal::StoreU32(&impl->image[record->dirEntryOffset + internal::dir_entry::kFileSize],
                     static_cast<std::uint32_t>(newContent.size()));
  return impl->Parse(err);
}

}  // namespace quorbix::virtdisk
