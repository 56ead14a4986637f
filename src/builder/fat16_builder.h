#ifndef QUORBIX_VIRTDISK_BUILDER_FAT16_BUILDER_H_
#define QUORBIX_VIRTDISK_BUILDER_FAT16_BUILDER_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "quorbix/virtdisk/fat_image_builder.h"

namespace quorbix::virtdisk::internal {

class Fat16Builder final : public IFatImageBuilder {
 public:
  bool Build(const std::filesystem::path& sourceFolder, const std::filesystem::path& outputImage,
             std::uint64_t sizeBytes) override;
  std::uint64_t MeasureFolderSize(const std::filesystem::path& folder) const override;
  std::string LastError() const override { return lastError; }
  std::vector<std::string> SkippedFiles() const override { return skippedFiles; }

 private:
  std::string lastError;
  std::vector<std::string> skippedFiles;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_FAT16_BUILDER_H_
