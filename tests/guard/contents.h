#ifndef QUORBIX_VIRTDISK_TESTS_GUARD_CONTENTS_H_
#define QUORBIX_VIRTDISK_TESTS_GUARD_CONTENTS_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/guest_editor.h"
#include "support/temp_folder.h"

// What files say, wherever they are. Empty ones say nothing.

namespace quorbix::virtdisk::internal::guard {

using Contents = std::set<std::string>;

inline void AddFolder(const std::filesystem::path& folder, Contents& contents) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!std::filesystem::is_regular_file(entry.symlink_status())) continue;
    const std::string content = test::ReadWholeFile(entry.path());
    if (!content.empty()) contents.insert(content);
  }
}

inline void AddDisk(const std::filesystem::path& image, Contents& contents) {
  for (const auto& [path, content] : test::GuestEditor(image).Files()) {
    if (!content.empty()) contents.insert(content);
  }
}

inline void AddTrash(const std::filesystem::path& stateFolder, Contents& contents) {
  std::vector<TrashedItem> items;
  std::string err;
  EXPECT_TRUE(ListTrash(stateFolder, items, err)) << err;
  for (const TrashedItem& item : items) {
    const std::filesystem::path file = stateFolder / "trash" / item.id;
    if (item.side == "disk") {
      AddDisk(file, contents);
    } else if (std::filesystem::is_regular_file(std::filesystem::symlink_status(file))) {
      contents.insert(test::ReadWholeFile(file));
    }
  }
}

inline void ExpectAllIn(const Contents& before, const Contents& after) {
  for (const std::string& content : before) {
    EXPECT_TRUE(after.contains(content)) << '"' << content << "\" is gone";
  }
}

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_TESTS_GUARD_CONTENTS_H_
