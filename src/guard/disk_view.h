#ifndef QUORBIX_VIRTDISK_GUARD_DISK_VIEW_H_
#define QUORBIX_VIRTDISK_GUARD_DISK_VIEW_H_

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fat16/volume_layout.h"
#include "guard/facts.h"
#include "guard/host_changes.h"
#include "guard/kept_contents.h"
#include "guard/model.h"
#include "guard/state.h"
#include "guard/work_monitor.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk::internal::guard {

// What a slot says besides name, first cluster and size: attributes, times and dates, as stored in
// its bytes 11 to 25.
using SlotMarks = std::array<std::uint8_t, dir_entry::kFirstCluster - dir_entry::kAttributes>;

// An entry of the disk with what a new image takes over for it.
struct DiskEntry {
  SlotMarks marks{};
  std::uint64_t slotOffset = 0;  // from the start of the image: tells the order in a directory
  std::uint16_t firstCluster = 0;
};

// The disk as it is.
struct DiskView {
  enum class Result {
    kComplete,  // also when `facts` say that there is nothing to see
    kBusy,      // the image changed while it was read
    kStopped,
  };
  Result result = Result::kComplete;
  ImageFacts facts{};  // but for what was before
  Stamp stamp{};
  std::int64_t taken = 0;                      // when the reading began
  std::map<std::string, DiskItem> items{};     // by key
  std::map<std::string, DiskEntry> entries{};  // by key
  std::vector<GuardedNote> notes{};
  std::array<std::uint8_t, kSectorBytes> masterBoot{};  // sector 0; zeros without partitions
  std::array<std::uint8_t, kSectorBytes> boot{};        // the volume's first sector
  std::string rootLabel{};                              // eleven bytes; empty when there is none
};

// Which contents are kept: those that differ from what is known.
struct DiskKeeping {
  std::map<std::string, Content> known{};  // by key
  KeptContents& kept;
};

// Reads the image from end to end: every file of the volume is hashed. `work` is what that is told
// to be.
DiskView LookAtDisk(const std::filesystem::path& image, GuardedWork work, WorkMonitor& monitor,
                    const DiskKeeping* keeping = nullptr);

// Hands out the contents of the files of an image that was looked at, which must all outlive it.
class ImageContents {
 public:
  ImageContents(const std::filesystem::path& image, const DiskView& view, const KeptContents& kept);
  ~ImageContents();
  ImageContents(const ImageContents&) = delete;
  ImageContents& operator=(const ImageContents&) = delete;

  Ending Read(const std::string& diskPath, const Sink& sink);

 private:
  struct Opened;

  Ending Open();

  const std::filesystem::path path;
  const DiskView& view;
  const KeptContents& kept;
  std::unique_ptr<Opened> opened;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_DISK_VIEW_H_
