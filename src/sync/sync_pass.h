#ifndef QUORBIX_VIRTDISK_SYNC_SYNC_PASS_H_
#define QUORBIX_VIRTDISK_SYNC_SYNC_PASS_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

#include "quorbix/virtdisk/fat_image_builder.h"
#include "sync/file_version.h"

namespace quorbix::virtdisk::internal {

// What one pass leaves to the next. As made here, it knows nothing: the next pass merges both
// sides.
struct SyncState {
  VersionMap baseline;  // the version of every file on which both sides last agreed
  std::filesystem::file_time_type lastImageWriteTime = std::filesystem::file_time_type::min();
  std::uint64_t lastImageSize = 0;  // bytes
  std::uint64_t lastHostSignature = 0;
};

using BuilderFactory = std::function<std::unique_ptr<IFatImageBuilder>()>;

// Runs one synchronisation pass between an image file and a host folder. Failures are not reported:
// they end or shorten the pass. A pass that ended early is tried again by the next one; a single
// file that could not be carried over, by the first pass that finds a change on either side.
//
// Throws std::filesystem::filesystem_error when a listing of the folder fails half way, and
// std::bad_alloc; `state` is then as it was.
void RunSyncPass(const std::filesystem::path& imagePath, const std::filesystem::path& hostRoot,
                 SyncState& state, const BuilderFactory& createBuilder = CreateFat16Builder);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_SYNC_SYNC_PASS_H_
