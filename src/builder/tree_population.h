#ifndef QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_
#define QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include "fat16/fat16_image.h"

namespace quorbix::virtdisk::internal {

enum class EntryKind { kDirectory, kRegularFile, kOther, kStatusFailed };

// Decides what a directory entry is, asking it `is_directory`, then `is_regular_file`. Both use the
// type that the listing reported, else the status, following links. kStatusFailed: an answer came
// with an error, which `error` holds.
template <class Entry>
EntryKind KindOf(const Entry& entry, std::error_code& error) {
  if (entry.is_directory(error)) {
    return error ? EntryKind::kStatusFailed : EntryKind::kDirectory;
  }
  if (entry.is_regular_file(error)) {
    return error ? EntryKind::kStatusFailed : EntryKind::kRegularFile;
  }
  return EntryKind::kOther;
}

// What a listing says of one entry. Names, not paths: the path class keeps every component apart,
// and the listings of all directories down to a deep one are held at the same time.
struct HostEntry {
  std::string name;
  EntryKind kind = EntryKind::kOther;
  std::error_code statusError;  // with kStatusFailed
};

struct HostListing {
  std::vector<HostEntry> entries;  // in the host's order
  std::error_code error;           // what kept the listing from beginning, or ended it early
};

HostListing ListHostDir(const std::filesystem::path& hostDir);

using ListDir = std::function<HostListing(const std::filesystem::path& hostDir)>;

// Copies what lies in `hostDir`, with all subdirectories, into the directory `dirCluster` of
// `image`, in the order in which the host lists it.
//
// Entries that cannot be copied are appended to `skipped`, as host path and bracketed reason, and
// cost nothing else. Returns false only when the image cannot take an entry; `err` then holds the
// image's message. An empty file that finds no slot is dropped: the result stays true, and the
// message stays in `err`.
[[nodiscard]] bool PopulateDir(Fat16Image& image, std::uint32_t dirCluster,
                               const std::filesystem::path& hostDir, std::string& err,
                               std::vector<std::string>& skipped,
                               const ListDir& listDir = ListHostDir);

enum : int { kReadWhole = 0, kUnreadable = 1 };

// Replaces `content` by the whole content of a host file and returns kReadWhole; returns
// kUnreadable when the file cannot be opened or an error ends the reading before the file's end.
// The size that the file's metadata give is not relied on.
[[nodiscard]] int ReadHostFile(const std::filesystem::path& hostFile,
                               std::vector<std::uint8_t>& content);

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_
