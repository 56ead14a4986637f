#ifndef QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_
#define QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include "common/byte_buffer.h"
#include "common/folder_listing.h"
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

// The same for the entry at `path`, of which a listing reported the type `listed`. Links, and
// entries of unknown type, are asked for what they are now.
EntryKind AskKind(const std::filesystem::path& path, std::filesystem::file_type listed,
                  std::error_code& error);

// What a population asks of the host.
struct HostQueries {
  std::function<FolderListing(const std::filesystem::path& folder)> list =
      [](const std::filesystem::path& folder) { return ListFolder(folder); };
  std::function<EntryKind(const std::filesystem::path& path, std::filesystem::file_type listed,
                          std::error_code& error)>
      ask = AskKind;
};

// Copies what lies in `hostDir`, with all subdirectories, into the directory `dirCluster` of
// `image`, in the order in which the host lists it.
//
// Entries that cannot be copied are appended to `skipped`, as host path and bracketed reason, and
// cost nothing else. Returns false only when the image cannot take an entry; `err` then holds the
// image's message. An empty file that finds no slot is dropped: the result stays true, and the
// message stays in `err`.
[[nodiscard]] bool PopulateDir(Fat16Image& image, std::uint32_t dirCluster,
                               const std::filesystem::path& hostDir, std::string& err,
                               std::vector<std::string>& skipped, const HostQueries& host = {});

enum : int { kReadWhole = 0, kUnreadable = 1 };

// Replaces `content` by the whole content of a host file and returns kReadWhole; returns
// kUnreadable when the file cannot be opened, is no regular file by now, or an error ends the
// reading before the file's end. The size that the file's metadata give is not relied on.
//
// No more than `mostBytes` are read, and one byte beyond them when the file has it: whoever has no
// room for more needs to know no more.
[[nodiscard]] int ReadHostFile(const std::filesystem::path& hostFile, ByteBuffer& content,
                               std::uint64_t mostBytes = std::numeric_limits<std::uint32_t>::max());

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_TREE_POPULATION_H_
