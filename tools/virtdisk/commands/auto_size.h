#ifndef QUORBIX_VIRTDISK_TOOL_AUTO_SIZE_H_
#define QUORBIX_VIRTDISK_TOOL_AUTO_SIZE_H_

#include <cstdint>
#include <string>

#include <quorbix/virtdisk/build_preview.h>

namespace quorbix::virtdisk::tool {

// In whole MiB.
inline constexpr std::uint64_t kLargestImageMiB = 4095;

// The size that `--size auto` stands for: as SmallestImage, but a root with too many entries is no
// hindrance where a build only drops the empty files among them. In bytes; 0 when no size will do.
std::uint64_t AutoSize(const BuildPreview& preview, std::uint64_t aboveBytes = 0);

// Why no size will do, as a sentence about the folder with what to do. For an AutoSize of 0.
std::string WhyNoSizeWillDo(const BuildPreview& preview);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_AUTO_SIZE_H_
