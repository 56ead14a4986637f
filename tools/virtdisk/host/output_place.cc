#include "host/output_place.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "browser/file_source.h"
#include "browser/volume_description.h"
#include "check/partitions.h"
#include "check/volume_claim.h"
#include "common/host_file.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

bool IsBlank(const fs::path& path) {
  const internal::Descriptor file = internal::OpenHostFile(path.c_str(), O_RDONLY);
  return file && ::lseek(file.Get(), 0, SEEK_DATA) < 0 && errno == ENXIO;
}

// A reader does without the signature, but here another file is lost when it is taken for a disk.
bool IsSigned(internal::ByteSource& source) {
  std::string err;
  std::vector<std::uint8_t> buffer;
  if (source.Size() < internal::kSectorBytes) return false;
  const std::uint8_t* first = source.Read(0, internal::kSectorBytes, buffer, err);
  return first != nullptr && internal::HasSignature(first);
}

OutputKind LookAtContent(const fs::path& path) {
  if (IsBlank(path)) return OutputKind::kDiskImage;
  std::string err;
  Fat16FsInfo info;
  std::vector<internal::Partition> others;
  const auto source = internal::FileSource::Open(path, err);
  const bool hasVolume = source && IsSigned(*source) &&
                         internal::DescribeVolume(*source, info, err) &&
                         !internal::WouldBeMisread(internal::ClaimOf(info)) &&
                         internal::FindOtherPartitions(*source, info, others, err);
  if (!hasVolume) return OutputKind::kOtherFile;
  // An entry of no length has nothing in it that could be lost. A volume that is bare has no table.
  const bool isAlone = !info.partitioned || std::all_of(others.begin(), others.end(),
                                                        [](const internal::Partition& other) {
                                                          return other.start == other.end;
                                                        });
  return isAlone ? OutputKind::kDiskImage : OutputKind::kSharedDisk;
}

// Whether the links lead into the folder that the system makes up for processes: what is there
// stands for what somebody has open, and a file in the place of /dev/stdout would take that from
// every program of the machine.
bool LeadsIntoProcesses(fs::path path) {
  constexpr int kMostLinks = 40;
  std::error_code failed;
  for (int i = 0; i < kMostLinks; ++i) {
    const fs::path folder = fs::weakly_canonical(fs::absolute(path, failed).parent_path(), failed);
    if (folder.native().starts_with("/proc/")) return true;
    const fs::path target = fs::read_symlink(path, failed);
    if (failed) return false;
    path = folder / target;
  }
  return true;
}

// Without links, and without a separator at its end; what leads there need not exist. Empty: nobody
// knows.
fs::path RealPlace(const fs::path& path) {
  std::error_code failed;
  const fs::path place =
      fs::weakly_canonical(fs::absolute(internal::FollowLinks(path), failed), failed);
  if (failed) return {};
  return place.has_filename() ? place : place.parent_path();
}

}  // namespace

OutputKind LookAtOutput(const fs::path& path) {
  std::error_code unknown;
  const fs::file_status status = fs::status(path, unknown);
  if (fs::is_directory(status)) return OutputKind::kFolder;
  if (!fs::exists(status)) return OutputKind::kNothing;
  if (!fs::is_regular_file(status) || LeadsIntoProcesses(path)) return OutputKind::kNoRegularFile;
  return LookAtContent(path);
}

bool IsDenied(const fs::path& path, int access) {
  return ::faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) != 0 && errno == EACCES;
}

std::string InPlaceHint(const fs::path& image, int error, std::uint64_t bytes) {
  std::error_code unknown;
  if (!fs::is_regular_file(image, unknown) || IsDenied(image, W_OK)) return {};
  if (error == EACCES || error == EPERM) return " --in-place writes into the image itself.";
  const bool hasNoRoom = error == ENOSPC || error == EDQUOT;
  const bool isLargeEnough = hasNoRoom && fs::file_size(image, unknown) >= bytes && !unknown;
  return isLargeEnough ? " --in-place needs no room for a copy." : "";
}

bool IsSameFile(const fs::path& a, const fs::path& b) {
  std::error_code unknown;
  return fs::equivalent(a, b, unknown) && !unknown;
}

bool HaveSamePlace(const fs::path& a, const fs::path& b) {
  const fs::path place = RealPlace(a);
  return !place.empty() && place == RealPlace(b);
}

bool LiesWithin(const fs::path& path, const fs::path& folder) {
  const fs::path place = RealPlace(path);
  const fs::path top = RealPlace(folder);
  if (place.empty() || top.empty()) return false;
  const auto [topEnd, ignored] = std::mismatch(top.begin(), top.end(), place.begin(), place.end());
  return topEnd == top.end();
}

}  // namespace quorbix::virtdisk::tool
