#ifndef QUORBIX_VIRTDISK_GUARD_KEPT_CONTENTS_H_
#define QUORBIX_VIRTDISK_GUARD_KEPT_CONTENTS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "guard/model.h"

namespace quorbix::virtdisk::internal::guard {

// Enough for what changes from one pass to the next, and little beside the image, which is in
// memory as well: the gigabytes that a first meeting reads are not kept.
constexpr std::uint64_t kMostKeptBytes = std::uint64_t{64} << 20;

// What a look has read of both sides, for the new image to be made of and the folder's files to be
// written from: a file that has changed is read once, as far as all of them have room here.
class KeptContents {
 public:
  bool HasRoomFor(std::uint64_t bytes) const { return bytes <= kMostKeptBytes - held; }

  // What there is room for. `path` is relative to the folder, or that of KeyOnDisk.
  void Keep(const std::string& path, const Content& content, std::vector<std::uint8_t> bytes);

  // The bytes of that content of the file; null: not kept.
  const std::vector<std::uint8_t>* Find(const std::string& path, const Content& content) const;

  // Of a file of the disk: nothing that a path of the folder can be.
  static std::string KeyOnDisk(const std::string& diskKey) { return '/' + diskKey; }

  void Clear();

 private:
  struct File {
    Content content{};
    std::vector<std::uint8_t> bytes{};
  };
  std::map<std::string, File> files;
  std::uint64_t held = 0;
};

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_KEPT_CONTENTS_H_
