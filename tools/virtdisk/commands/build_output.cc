#include "commands/build_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>

#include "common/ascii.h"
#include "common/host_file.h"
#include "guard/host_view.h"
#include "host/host_file.h"
#include "host/output_place.h"
#include "host/stop_signals.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kCopiesItself[] =
    "The next build would copy the image into itself. Give another path, or --force.";

bool Refuse(Console& console, const std::string& message, const std::string& hint) {
  Fail(console, message, hint);
  return false;
}

bool HasNameOfAnImage(const fs::path& path) {
  static constexpr std::string_view kExtensions[] = {".img", ".ima", ".dsk", ".hdd", ".hdf"};
  const std::string extension = internal::ToAsciiLower(path.extension().string());
  return std::find(std::begin(kExtensions), std::end(kExtensions), extension) !=
         std::end(kExtensions);
}

// Gives the file room for `size` bytes, or leaves it as long as it is.
bool MakeRoomOrShrink(int file, std::uint64_t size) {
  struct ::stat before {};
  if (::fstat(file, &before) != 0) return false;
  if (MakeRoom(file, 0, size)) return true;
  const int error = errno;
  [[maybe_unused]] const int ignored = ::ftruncate(file, before.st_size);
  errno = error;
  return false;
}

}  // namespace

bool AreExchanged(const fs::path& folder, const fs::path& image) {
  if (LookAtOutput(image) != OutputKind::kFolder) return false;
  const OutputKind kind = LookAtOutput(folder);
  return kind == OutputKind::kDiskImage || kind == OutputKind::kSharedDisk ||
         (kind == OutputKind::kNothing && HasNameOfAnImage(folder));
}

bool IsOutputAcceptable(Console& console, const BuildOptions& options) {
  const std::string image = options.image.string();
  switch (LookAtOutput(options.image)) {
    case OutputKind::kFolder:
      return Refuse(console, image + " is a folder",
                    "The folder comes first, then the image: virtdisk build FOLDER IMAGE.");
    case OutputKind::kNoRegularFile:
      return Refuse(console, image + " is no regular file",
                    "An image is written to a file; copy it to a device from there.");
    case OutputKind::kOtherFile:
      if (options.force) break;
      if (IsDenied(options.image, R_OK)) {
        return Refuse(console, image + " exists, and you may not read it",
                      "Give another path; --force replaces it unread.");
      }
      return Refuse(console, image + " exists, and is no FAT16 disk image that can be read",
                    "Give another path, or --force to have the file replaced.");
    case OutputKind::kSharedDisk:
      if (options.force) break;
      return Refuse(console, image + " has other partitions, which would be lost",
                    "Give another path, or --force to have the whole disk replaced.");
    case OutputKind::kDiskImage:
      if (options.force || !IsDenied(options.image, W_OK)) break;
      return Refuse(console, image + " is write-protected",
                    "Give another path, or --force to have it replaced.");
    case OutputKind::kNothing:
      break;
  }
  if (options.force || !LiesWithin(options.image, options.folder)) return true;
  return Refuse(console, image + " lies inside " + options.folder.string(), kCopiesItself);
}

bool IsLeftAlone(Console& console, const BuildOptions& options, const BuildPreview& preview) {
  const fs::path path = internal::FollowLinks(options.image);
  struct ::stat image {};
  struct ::stat folder {};
  const bool isThere = ::stat(path.c_str(), &image) == 0;
  if (::stat(path.has_parent_path() ? path.parent_path().c_str() : ".", &folder) != 0) return true;
  const auto leadsThere = [&](const BuildPreviewEntry& entry) {
    if (entry.fate != BuildFate::kCopied || (!entry.isDirectory && !isThere)) return false;
    const struct ::stat& place = entry.isDirectory ? folder : image;
    struct ::stat found {};
    return ::stat((options.folder / entry.hostPath).c_str(), &found) == 0 &&
           found.st_ino == place.st_ino && found.st_dev == place.st_dev;
  };
  const auto found = std::find_if(preview.entries.begin(), preview.entries.end(), leadsThere);
  if (found == preview.entries.end()) return true;
  return Refuse(console,
                (options.folder / found->hostPath).string() +
                    (found->isDirectory ? " is the folder of " : " is ") + options.image.string(),
                kCopiesItself);
}

bool ImageOutput::Open(const fs::path& image, bool inPlace, std::string& err) {
  path = internal::FollowLinks(image);
  if (!inPlace || LookAtOutput(path) == OutputKind::kNothing) return replacement.Create(path, err);
  struct ::stat status {};
  existing = internal::OpenHostFile(path.c_str(), O_WRONLY | O_NOFOLLOW);
  if (!existing || ::fstat(existing.Get(), &status) != 0) {
    return FailToWriteFile(err, path, SystemText(errno));
  }
  before = internal::guard::StampOf(status);
  return S_ISREG(status.st_mode) || FailToWriteFile(err, path, kNotRegular);
}

bool ImageOutput::Write(std::span<const std::uint8_t> bytes, const MovedBytes& moved,
                        const std::string& lastWords, std::string& err) {
  if (existing) {
    if (!internal::guard::IsStill(AT_FDCWD, path, before)) {
      return FailToWriteFile(err, path, kChangedMeanwhile);
    }
    return WriteIntoExisting(bytes, moved, lastWords) ||
           FailToWriteFile(err, path, SystemText(errno));
  }
  if (!WriteInPieces(replacement.Descriptor(), bytes, moved)) {
    error = errno;
    return FailToWriteFile(err, path, SystemText(error));
  }
  return replacement.Commit(err);
}

std::string ImageOutput::OtherWay(std::uint64_t bytes) const {
  if (existing) return {};
  return InPlaceHint(path, replacement.Error() != 0 ? replacement.Error() : error, bytes);
}

bool ImageOutput::WriteIntoExisting(std::span<const std::uint8_t> bytes, const MovedBytes& moved,
                                    const std::string& lastWords) {
  const auto size = static_cast<::off_t>(bytes.size());
  if (!MakeRoomOrShrink(existing.Get(), bytes.size())) return false;
  isTouched = true;
  const LastWords spoken(lastWords);
  return WriteInPieces(existing.Get(), bytes, moved) && ::ftruncate(existing.Get(), size) == 0 &&
         ::fsync(existing.Get()) == 0;
}

}  // namespace quorbix::virtdisk::tool
