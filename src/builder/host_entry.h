#ifndef QUORBIX_VIRTDISK_BUILDER_HOST_ENTRY_H_
#define QUORBIX_VIRTDISK_BUILDER_HOST_ENTRY_H_

#include <filesystem>
#include <functional>
#include <system_error>

#include "common/folder_listing.h"

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

struct EntryAnswer {
  EntryKind kind = EntryKind::kOther;
  std::error_code error{};  // of kStatusFailed
};

// What a population asks of the host.
struct HostQueries {
  std::function<FolderListing(const std::filesystem::path& folder)> list =
      [](const std::filesystem::path& folder) { return ListFolder(folder.native()); };
  // A record is what comes back: the types of functions that return an enumeration are offered by
  // the library, whatever -fvisibility says.
  std::function<EntryAnswer(const std::filesystem::path& path, std::filesystem::file_type listed)>
      ask = [](const std::filesystem::path& path, std::filesystem::file_type listed) {
        EntryAnswer answer;
        answer.kind = AskKind(path, listed, answer.error);
        return answer;
      };
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BUILDER_HOST_ENTRY_H_
