#include "disk/opened_image.h"

#include <unistd.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "check/partitions.h"
#include "check/volume_claim.h"
#include "common/partition_types.h"
#include "disk/image_tree.h"
#include "host/output_place.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

using internal::VolumeClaim;
using internal::VolumeIndex;

// FAT32 keeps at 0 what every FAT16 volume has, so that nothing can force it to be read.
bool IsFat32ThatCannotBeRead(const Fat16FsInfo& info) {
  return info.bytesPerSector == 512 && info.sectorsPerCluster != 0 && info.fatCount != 0 &&
         internal::ClaimOf(info) == VolumeClaim::kFat32;
}

// Which other systems read.
bool HasLargeSectors(const Fat16FsInfo& info) {
  const bool isLarge =
      info.bytesPerSector == 1024 || info.bytesPerSector == 2048 || info.bytesPerSector == 4096;
  return isLarge && info.sectorsPerCluster != 0 && info.fatCount != 0;
}

bool IsDescribed(const Fat16FsInfo& info) { return info.dataStartSector != 0; }

// What the boot sector has against being read as FAT16; empty for nothing.
std::string ReasonOf(const Fat16FsInfo& info) {
  switch (internal::ClaimOf(info)) {
    case VolumeClaim::kFat12:
      return "says FAT12";
    case VolumeClaim::kFat32:
      return "says FAT32";
    case VolumeClaim::kTooFew:
      return "has only " + Count(internal::ClaimedClusters(info), "cluster", "clusters") +
             ", which makes it FAT12, and does not say FAT16";
    default:
      return {};
  }
}

// What is in the partitions of a disk none of which is looked into; empty where there are none.
std::string KindsOfPartitions(internal::ByteSource& source, const Fat16FsInfo& info) {
  std::string unknown;
  std::string kinds;
  std::vector<internal::Partition> partitions;
  if (info.partitioned || !FindOtherPartitions(source, info, partitions, unknown)) return {};
  for (const internal::Partition& one : partitions) {
    if (internal::partition_entry::IsSupportedType(one.type)) return {};  // beyond the image's end
    kinds += (kinds.empty() ? "" : ", ") + FormatPartitionType(one.type);
  }
  return kinds;
}

int TellUnreadable(Console& console, const std::filesystem::path& path, const OpenedImage& image,
                   const std::string& message) {
  const Fat16FsInfo& info = image.Info();
  const std::string reason = IsDescribed(info) ? ReasonOf(info) : "";
  if (!reason.empty()) {
    return Fail(console, message, "The volume in " + path.string() + " " + reason + ".");
  }
  if (HasLargeSectors(info)) {
    return Fail(console, message,
                "The volume in " + path.string() + " has sectors of " +
                    GroupDigits(info.bytesPerSector) +
                    " bytes; virtdisk reads those of 512 only, mtools and 7-Zip others.");
  }
  const std::string kinds = KindsOfPartitions(image.Source(), info);
  if (!kinds.empty()) {
    return Fail(console, message,
                path.string() + " has partitions of type " + kinds +
                    " only; virtdisk looks into those of FAT16 that the table itself names.");
  }
  if (!IsFat32ThatCannotBeRead(info)) {
    return Fail(console, message,
                IsDescribed(info) ? "The volume in " + path.string() +
                                        " is damaged; `virtdisk verify` tells more."
                                  : path.string() +
                                        " holds no FAT16 volume that can be read; is it the right "
                                        "file, and whole?");
  }
  return Refuse(console, path.string() + " holds a FAT32 volume",
                "virtdisk reads FAT16 only; mtools and 7-Zip read others.");
}

}  // namespace

std::unique_ptr<OpenedImage> OpenedImage::Open(Console& console, const std::filesystem::path& path,
                                               const Wish& wish, int& status) {
  std::unique_ptr<internal::FileSource> source = OpenSource(console, path);
  if (!source) {
    status = kFailed;
    return nullptr;
  }
  std::string err;
  std::unique_ptr<OpenedImage> image(new OpenedImage(console, std::move(source)));
  const auto hidden =
      wish.hidden ? VolumeIndex::Hidden::kCollectDotsToo : VolumeIndex::Hidden::kPassOver;
  const auto broken = wish.whole ? VolumeIndex::Broken::kFail : VolumeIndex::Broken::kPassOver;
  const bool isParsed = image->index.Parse(err, hidden, broken);
  image->shown.Finish();
  // Even where its misread directories lead nowhere, what it says of itself is the better reason.
  const bool isRefused =
      IsDescribed(image->Info()) && RefuseMisread(console, image->Info(), path, wish.force);
  if (internal::IsBeyondSectorNumbers(image->Info())) {
    status = Fail(
        console, "the volume in " + path.string() + " lies beyond what numbers of sectors can tell",
        "Copy its partition into a file of its own.");
    return nullptr;
  }
  if (isParsed && !isRefused && HasEndlessPaths(image->index)) {
    Fail(console, "the directories in " + path.string() + " are nested too deep to be listed",
         "`virtdisk verify` tells more.");
    status = kFailed;
    return nullptr;
  }
  if (isParsed && !isRefused) {
    image->TellBroken(console, path);
    return image;
  }
  status = isRefused ? int{kRefused} : TellUnreadable(console, path, *image, err);
  return nullptr;
}

void OpenedImage::TellBroken(Console& console, const std::filesystem::path& path) const {
  const std::vector<std::uint32_t>& broken = index.BrokenDirectories();
  if (broken.empty()) return;
  const std::string first = index.PathOf(index.Records()[broken.front()]);
  const std::string more =
      " and " + Count(broken.size() - 1, "other directory", "other directories");
  const std::string message =
      first + (broken.size() == 1 ? "" : more) + " in " + path.string() + " cannot be read";
  // A volume of another kind is not damaged for that.
  if (internal::WouldBeMisread(internal::ClaimOf(Info()))) return Remark(console, message);
  Fail(console, message, "Nothing is known of what is in there; `virtdisk verify` tells more.");
}

ImageTree OpenedImage::Tree(Console& console) const {
  const std::uint64_t entries = index.Records().size() + index.HiddenEntries().size();
  Progress progress(console, "listing", 2 * entries, ProgressUnit::kEntries);
  return ImageTree(index, [&](std::uint64_t more) { progress.Add(more); });
}

void OpenedImage::TellHiddenLeftOut(Console& console) const {
  if (index.HasAllHiddenEntries()) return;
  const std::string message = "not all hidden entries could be read";
  if (internal::WouldBeMisread(internal::ClaimOf(Info()))) return Remark(console, message);
  Fail(console, message, "The directories are damaged; `virtdisk verify` tells more.");
}

std::unique_ptr<internal::FileSource> OpenSource(Console& console,
                                                 const std::filesystem::path& path) {
  constexpr std::string_view kCannotOpen = "image could not be opened: ";
  std::string err;
  std::unique_ptr<internal::FileSource> source = internal::FileSource::Open(path, err);
  if (source) return source;
  const std::string reason = err.starts_with(kCannotOpen) ? err.substr(kCannotOpen.size()) : err;
  Fail(console, "cannot read " + path.string() + ": " + reason,
       IsDenied(path, R_OK)
           ? "Its owner, or root, may let you read it."
           : "Give the path of an existing disk image; `virtdisk build` makes one.");
  return nullptr;
}

bool RefuseMisread(Console& console, const Fat16FsInfo& info, const std::filesystem::path& image,
                   bool force) {
  if (force || !internal::WouldBeMisread(internal::ClaimOf(info))) return false;
  Refuse(console,
         "the volume in " + image.string() + " " + ReasonOf(info) + ": its files would be misread",
         "mtools and 7-Zip read it; --force takes it for FAT16 all the same.");
  return true;
}

}  // namespace quorbix::virtdisk::tool
