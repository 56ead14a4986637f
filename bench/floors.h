#ifndef QUORBIX_VIRTDISK_BENCH_FLOORS_H_
#define QUORBIX_VIRTDISK_BENCH_FLOORS_H_

#include <cstdint>
#include <filesystem>

namespace quorbix::virtdisk::bench {

// The least that a job can cost: the same bytes read, hashed and written by the shortest program
// that does so, with the library's own hash, so that what a job takes longer is the work around it.
// Each throws std::runtime_error when the host refuses.

// Lists a folder, reads every file below it through one small buffer and hashes it.
std::uint64_t ReadAndHashFolder(const std::filesystem::path& folder);

// Reads a whole image into memory and hashes as many bytes of it as its files have.
std::uint64_t ReadAndHashImage(const std::filesystem::path& image, std::uint64_t fileBytes);

// Reads every file below `folder` straight to a place of its own, as many bytes apart as a cluster
// has, in `imageBytes` of memory that are then written to `image` in one piece.
void ReadIntoPlaceAndWrite(const std::filesystem::path& folder, const std::filesystem::path& image,
                           std::uint64_t imageBytes, std::uint64_t clusterBytes);

}  // namespace quorbix::virtdisk::bench

#endif  // QUORBIX_VIRTDISK_BENCH_FLOORS_H_
