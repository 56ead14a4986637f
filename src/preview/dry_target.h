#ifndef QUORBIX_VIRTDISK_PREVIEW_DRY_TARGET_H_
#define QUORBIX_VIRTDISK_PREVIEW_DRY_TARGET_H_

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "builder/tree_population.h"
#include "common/byte_buffer.h"
#include "quorbix/virtdisk/build_preview.h"

namespace quorbix::virtdisk::internal {

// Takes down what a population finds, and copies nothing. Takes nothing more when what it has seen
// fits into no image.
class DryTarget final : public PopulationTarget {
 public:
  DryTarget(const std::filesystem::path& topFolder, BuildPreview& filledPreview);

  std::uint32_t AddDirectory(const PlacedEntry& entry) override;
  FileResult AddFile(const PlacedEntry& entry) override;
  void Skip(const std::filesystem::path& path, const std::string& reason) override;
  void PassOver(const std::filesystem::path& path) override;

 private:
  using Identity = std::pair<::dev_t, ::ino_t>;

  BuildPreviewEntry Describe(const PlacedEntry& entry) const;
  std::string Relative(const std::filesystem::path& path) const;
  void NoteMeeting(const struct ::stat& status, BuildPreviewEntry& entry);
  void Add(BuildPreviewEntry entry);
  bool Claim(std::uint64_t clusters);

  const std::string top;  // what every path begins with
  BuildPreview& preview;
  std::vector<std::size_t>
      directories;  // entries by the numbers handed out, the top folder's first
  std::map<Identity, std::size_t> met;
  std::uint64_t clustersAtLeast = 0;  // that even the largest ones would take
  ByteBuffer content;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_PREVIEW_DRY_TARGET_H_
