#include "commands/auto_build.h"

#include <optional>

namespace quorbix::virtdisk::tool {

BuildResult BuildAtSmallestSize(IFatImageBuilder& builder, const std::filesystem::path& folder,
                                const std::filesystem::path& image, const FolderContent& content) {
  std::optional<std::uint64_t> size = SmallestSize(content);
  while (size) {
    if (builder.Build(folder, image, *size)) return {true, *size};
    if (!IsDiskFull(builder.LastError())) return {false, *size};
    size = SmallestSize(content, *size);
  }
  return {builder.Build(folder, image, kRefusedSize), kRefusedSize};
}

bool IsDiskFull(const std::string& message) {
  // "Disk full", "Disk full while writing file", "Disk full, cannot extend directory"
  return message.rfind("Disk full", 0) == 0;
}

}  // namespace quorbix::virtdisk::tool
