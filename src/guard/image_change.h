#ifndef QUORBIX_VIRTDISK_GUARD_IMAGE_CHANGE_H_
#define QUORBIX_VIRTDISK_GUARD_IMAGE_CHANGE_H_

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include "common/descriptor.h"
#include "fat16/fat16_image.h"
#include "guard/host_changes.h"
#include "guard/model.h"
#include "guard/state.h"
#include "guard/trash.h"
#include "guard/work_monitor.h"

namespace quorbix::virtdisk::internal::guard {

// Puts a new image in the place of the old one, which goes to the trash.
class ImageChange {
 public:
  // `image` is the file itself, no link to it; `old` is what it was when it was looked at.
  ImageChange(const std::filesystem::path& image, const Stamp& old, TrashRun& trashRun,
              WorkMonitor& workMonitor);

  // Writes the image to `whole`, a name that nobody has, with the old one's mode and owner, and
  // reads it back: it has to hold `expected`, and to be sound.
  [[nodiscard]] Ending Save(const Fat16Image& made, const std::filesystem::path& whole,
                            const std::map<std::string, DiskItem>& expected);

  // Gives `whole`, which lies beside the image, the image's name. There is an image under that name
  // at every moment; the old one when the trash does not take it.
  [[nodiscard]] Ending Rename(const std::filesystem::path& whole);

  // Copies `whole` over the image's own bytes, after a copy of these to the trash. As long as that
  // lasts the image has the volume id `tornId`. `why` is what the trash says of the copy.
  [[nodiscard]] Ending WriteInPlace(const std::filesystem::path& whole, std::uint32_t tornId,
                                    const std::string& why);

  // Whether the image is another one than it was, or is being written over, as far as these came.
  bool IsBegun() const { return isBegun; }

 private:
  bool IsAsSeen(const std::filesystem::path& file) const;
  Ending SaveTo(Descriptor& file, const Fat16Image& made, const std::filesystem::path& whole);
  Ending Verify(const Fat16Image& made, const std::filesystem::path& whole,
                const std::map<std::string, DiskItem>& expected);
  Ending RenameByLink(const std::filesystem::path& whole, const std::filesystem::path& place);
  Ending TakeBack(const std::filesystem::path& whole, const Stamp& made, Ending why) const;
  // `copy` is where it lies then.
  Ending CopyToTrash(int from, const std::string& why, std::filesystem::path& copy);
  Ending CopyTo(const std::filesystem::path& copy, int from);
  Ending CopyBytes(int from, int to, const std::filesystem::path& copy);
  Ending CopyOver(int from, int to, std::uint32_t tornId);

  const std::filesystem::path path;
  const Stamp seen;
  TrashRun& trash;
  WorkMonitor& monitor;
  bool isBegun = false;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_IMAGE_CHANGE_H_
