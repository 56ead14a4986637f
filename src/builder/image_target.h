#ifndef QUORBIX_VIRTDISK_BUILDER_IMAGE_TARGET_H_
#define QUORBIX_VIRTDISK_BUILDER_IMAGE_TARGET_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "builder/build_observer.h"
#include "builder/tree_population.h"
#include "common/byte_buffer.h"
#include "fat16/fat16_image.h"

namespace quorbix::virtdisk::internal {

// Copies what a population finds into a directory of an image. Messages of the image go to the
// error text, left-out entries to the list, as host path and bracketed reason.
class ImageTarget final : public PopulationTarget {
 public:
  ImageTarget(Fat16Image& filledImage, std::uint32_t topCluster, std::string& error,
              std::vector<std::string>& skippedEntries, BuildObserver* buildObserver = nullptr)
      : image(filledImage),
        top(topCluster),
        err(error),
        skipped(skippedEntries),
        observer(buildObserver) {}

  std::uint32_t AddDirectory(const PlacedEntry& entry) override;
  FileResult AddFile(const PlacedEntry& entry) override;
  void Skip(const std::filesystem::path& path, const std::string& reason) override;
  void PassOver(const std::filesystem::path& /*path*/) override {}

 private:
  // Directories below the top one are numbered by their clusters.
  std::uint32_t ClusterOf(std::uint32_t directory) const {
    return directory == 0 ? top : directory;
  }
  FileResult AddContent(const PlacedEntry& entry);
  std::optional<Fat16Image::Chain> ReadIntoPlace(int file, std::uint32_t size);
  bool FillChain(int file, const Fat16Image::Chain& chain, std::uint32_t size);
  bool ReadPart(int file, std::span<std::uint8_t> part);
  void Tell(std::uint64_t bytes);

  Fat16Image& image;
  const std::uint32_t top;
  std::string& err;
  std::vector<std::string>& skipped;
  BuildObserver* const observer;  // may be null
  ByteBuffer content;             // of one file, kept so that its memory serves the next
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_IMAGE_TARGET_H_
