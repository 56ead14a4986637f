#include "builder/fat16_builder.h"

#include <system_error>
#include <utility>

#include "builder/build_identity.h"
#include "builder/image_content.h"
#include "builder/source_folder.h"
#include "fat16/fat16_image.h"

namespace quorbix::virtdisk {
namespace fs = std::filesystem;

namespace internal {
namespace {

// Links to folders are not followed here, unlike in a build: some lead round in circles.
bool IsFolderItself(const fs::directory_entry& entry) {
  std::error_code unknown;
  return entry.is_directory(unknown) && !entry.is_symlink(unknown);
}

std::uint64_t FileSizeOrZero(const fs::directory_entry& entry) {
  std::error_code error;
  if (!entry.is_regular_file(error)) return 0;
  const std::uintmax_t size = entry.file_size(error);
  return error ? 0 : size;
}

}  // namespace

bool Fat16Builder::Build(const fs::path& sourceFolder, const fs::path& outputImage,
                         std::uint64_t sizeBytes) {
  lastError.clear();
  skippedFiles.clear();
  if (!CheckSourceFolder(sourceFolder, lastError)) return false;
  Fat16Image image;
  if (!FillImage(image, sizeBytes, LabelFor(sourceFolder), sourceFolder, lastError, skippedFiles)) {
    return false;
  }
  if (!image.SaveToFile(outputImage, lastError)) return false;
  StampOutputImageMtime(outputImage);
  return true;
}

std::uint64_t Fat16Builder::MeasureFolderSize(const fs::path& folder) const {
  // Not the recursive iterator: it ends at the first folder it cannot open, and keeps a descriptor
  // open at every level.
  std::uint64_t total = 0;
  std::vector<fs::path> pending{folder};
  while (!pending.empty()) {
    const fs::path current = std::move(pending.back());
    pending.pop_back();
    std::error_code listingError;
    for (fs::directory_iterator it(current, listingError), end; !listingError && it != end;
         it.increment(listingError)) {
      if (IsFolderItself(*it)) {
        pending.push_back(it->path());
      } else {
        total += FileSizeOrZero(*it);
      }
    }
  }
  return total;
}

}  // namespace internal

std::unique_ptr<IFatImageBuilder> CreateFat16Builder() {
  return std::make_unique<internal::Fat16Builder>();
}

}  // namespace quorbix::virtdisk
