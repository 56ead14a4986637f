#ifndef QUORBIX_VIRTDISK_TESTS_SYNC_SYNCED_DISK_H_
#define QUORBIX_VIRTDISK_TESTS_SYNC_SYNCED_DISK_H_

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>

#include "quorbix/virtdisk/fat_image_builder.h"
#include "support/guest_editor.h"
#include "support/temp_folder.h"
#include "sync/sync_pass.h"

namespace quorbix::virtdisk::internal {

using FileTree = std::map<std::string, std::string>;  // path to content

// A host folder "host" and an image "DISK.IMG", with what a manager would remember of them.
class SyncedDisk : public testing::Test {
 protected:
  static constexpr std::uint64_t kImageBytes = 128 * 1024;

  std::filesystem::path Host() const { return folder / "host"; }
  std::filesystem::path Image() const { return folder / "DISK.IMG"; }

  void BuildImage(std::uint64_t bytes = kImageBytes) {
    folder.Folder("host");
    const auto builder = CreateFat16Builder();
    ASSERT_TRUE(builder->Build(Host(), Image(), bytes)) << builder->LastError();
  }

  // An image of the host folder as it is, and both sides agreed.
  void BuildAndAgree(std::uint64_t bytes = kImageBytes) {
    BuildImage(bytes);
    Pass();
  }

  void Pass() { RunSyncPass(Image(), Host(), state); }

  FileTree OnHost() const { return folder.Files("host"); }
  FileTree InImage() const { return test::GuestEditor(Image()).Files(); }

  // After this the host wins every conflict: the file clock counts from 2174.
  void DateAfter2174(const std::filesystem::path& rel) {
    const std::filesystem::file_time_type epoch{};
    std::filesystem::last_write_time(Host() / rel, epoch + std::chrono::hours(24 * 365 * 20));
  }

  test::TempFolder folder;
  SyncState state;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_TESTS_SYNC_SYNCED_DISK_H_
