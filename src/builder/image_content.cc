#include "builder/image_content.h"

#include "builder/build_identity.h"
#include "builder/tree_population.h"
#include "fat16/volume_layout.h"

namespace quorbix::virtdisk::internal {

std::string LabelFor(const std::filesystem::path& sourceFolder) {
  return sourceFolder.filename().string().substr(0, boot_sector::kVolumeLabelSize);
}

bool FillImage(Fat16Image& image, std::uint64_t sizeBytes, std::string_view label,
               const std::filesystem::path& sourceFolder, std::string& err,
               std::vector<std::string>& skipped, BuildObserver* observer) {
  if (!image.Init(sizeBytes, err)) return false;
  const std::uint32_t volumeId = GenerateVolumeId();
  image.SeedClusterAllocator(volumeId);
  image.WriteBootSector(label, volumeId);
  image.SetVolumeLabel(label);
  image.WriteMbr();
  return PopulateDir(image, Fat16Image::kRootDirectory, sourceFolder, err, skipped, {}, observer);
}

}  // namespace quorbix::virtdisk::internal
