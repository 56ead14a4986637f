#include "preview/dry_target.h"

#include <optional>

#include "builder/file_reading.h"
#include "common/divide_up.h"
#include "common/host_file.h"
#include "fat16/geometry.h"
#include "preview/shown_name.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kLargestClusterBytes = 65536;

// Whether the metadata may not say how much there is to read, as with what the system makes up:
// that has no size in one place and the size of a page in another, and takes no room.
bool IsSizeDoubtful(const struct ::stat& status) {
  return status.st_size == 0 ||
         (status.st_blocks == 0 && status.st_size <= static_cast<::off_t>(kLargestClusterBytes));
}

// The size of a file as a build reads it; nothing when it cannot be read. Where it is doubtful, the
// content is counted.
std::optional<std::uint64_t> ReadableBytes(int file, const struct ::stat& status,
                                           ByteBuffer& content) {
  if (!IsSizeDoubtful(status)) return static_cast<std::uint64_t>(status.st_size);
  if (ReadOpenedFile(file, 0, content, kMostFat16Clusters * kLargestClusterBytes) != kReadWhole) {
    return std::nullopt;
  }
  return content.size();
}

}  // namespace

DryTarget::DryTarget(const fs::path& topFolder, BuildPreview& filledPreview)
    : top(topFolder.native()), preview(filledPreview), directories{BuildPreviewEntry::kRoot} {
  struct ::stat status;
  if (::stat(top.c_str(), &status) == 0) {
    met.emplace(Identity(status.st_dev, status.st_ino), BuildPreviewEntry::kRoot);
  }
}

std::uint32_t DryTarget::AddDirectory(const PlacedEntry& entry) {
  BuildPreviewEntry described = Describe(entry);
  described.isDirectory = true;
  struct ::stat status;
  if (::stat(entry.path.c_str(), &status) == 0) NoteMeeting(status, described);
  ++preview.directories;
  directories.push_back(preview.entries.size());
  Add(std::move(described));
  return Claim(1) ? static_cast<std::uint32_t>(directories.size() - 1) : 0;
}

PopulationTarget::FileResult DryTarget::AddFile(const PlacedEntry& entry) {
  struct ::stat status;
  const Descriptor file = OpenRegularFile(entry.path.c_str(), status);
  if (!file) return FileResult::kUnreadable;
  const auto bytes = ReadableBytes(file.Get(), status, content);
  if (!bytes) return FileResult::kUnreadable;
  BuildPreviewEntry described = Describe(entry);
  described.bytes = *bytes;
  NoteMeeting(status, described);
  ++preview.files;
  preview.fileBytes += *bytes;
  Add(std::move(described));
  const std::uint64_t clusters = DivideUp(*bytes, kLargestClusterBytes);
  return Claim(clusters) ? FileResult::kAdded : FileResult::kFull;
}

void DryTarget::Skip(const fs::path& path, const std::string& reason) {
  BuildPreviewEntry entry;
  entry.hostPath = Relative(path);
  entry.fate = BuildFate::kLeftOut;
  entry.reason = reason;
  ++preview.leftOut;
  preview.entries.push_back(std::move(entry));
}

void DryTarget::PassOver(const fs::path& path) {
  BuildPreviewEntry entry;
  entry.hostPath = Relative(path);
  entry.fate = BuildFate::kPassedOver;
  preview.entries.push_back(std::move(entry));
}

BuildPreviewEntry DryTarget::Describe(const PlacedEntry& entry) const {
  BuildPreviewEntry described;
  described.hostPath = Relative(entry.path);
  described.directory = directories[entry.directory];
  described.isHidden = HasBlankBase(entry.shortName);
  described.isBehindLink = entry.isLink;
  if (described.directory != BuildPreviewEntry::kRoot) {
    const BuildPreviewEntry& parent = preview.entries[described.directory];
    described.imagePath = parent.imagePath;
    described.isHidden = described.isHidden || parent.isHidden;
    described.isBehindLink = described.isBehindLink || parent.isBehindLink;
  }
  described.imagePath += '/' + ShownName(entry.shortName);
  return described;
}

std::string DryTarget::Relative(const fs::path& path) const {
  const std::size_t begin = path.native().find_first_not_of('/', top.size());
  return begin == std::string::npos ? std::string() : path.native().substr(begin);
}

void DryTarget::NoteMeeting(const struct ::stat& status, BuildPreviewEntry& entry) {
  const auto [first, isNew] =
      met.try_emplace(Identity(status.st_dev, status.st_ino), preview.entries.size());
  entry.isMetAgain = !isNew;
  if (entry.isMetAgain) entry.metBefore = first->second;
}

void DryTarget::Add(BuildPreviewEntry entry) {
  if (entry.isHidden) ++preview.hidden;
  preview.entries.push_back(std::move(entry));
}

bool DryTarget::Claim(std::uint64_t clusters) {
  clustersAtLeast += clusters;
  return clustersAtLeast <= kMostFat16Clusters;
}

}  // namespace quorbix::virtdisk::internal
