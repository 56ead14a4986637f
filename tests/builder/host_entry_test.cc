#include "builder/host_entry.h"

#include <gtest/gtest.h>

#include <system_error>

namespace quorbix::virtdisk::internal {
namespace {

// A directory entry that answers as told, as the file system may when it changes underneath.
struct ToldEntry {
  bool directory = false;
  bool regularFile = false;
  std::error_code directoryError;
  std::error_code regularFileError;

  bool is_directory(std::error_code& error) const {
    error = directoryError;
    return directory;
  }
  bool is_regular_file(std::error_code& error) const {
    error = regularFileError;
    return regularFile;
  }
};

const std::error_code kIoError = std::make_error_code(std::errc::io_error);

TEST(KindOf, DirectoryAndRegularFile_AreTold) {
  std::error_code error;
  EXPECT_EQ(KindOf(ToldEntry{true, false, {}, {}}, error), EntryKind::kDirectory);
  EXPECT_EQ(KindOf(ToldEntry{false, true, {}, {}}, error), EntryKind::kRegularFile);
  EXPECT_EQ(KindOf(ToldEntry{false, false, {}, {}}, error), EntryKind::kOther);
}

TEST(KindOf, AnswerWithAnError_IsAFailedStatus) {
  std::error_code error;
  EXPECT_EQ(KindOf(ToldEntry{true, false, kIoError, {}}, error), EntryKind::kStatusFailed);
  EXPECT_EQ(error, kIoError);
  EXPECT_EQ(KindOf(ToldEntry{false, true, {}, kIoError}, error), EntryKind::kStatusFailed);
  EXPECT_EQ(error, kIoError);
}

TEST(KindOf, DirectoryIsAskedFirst) {
  std::error_code error;
  EXPECT_EQ(KindOf(ToldEntry{true, true, {}, kIoError}, error), EntryKind::kDirectory);
}

TEST(KindOf, ErrorWithoutAnAnswer_IsPassedOver) {
  std::error_code error;
  EXPECT_EQ(KindOf(ToldEntry{false, false, kIoError, kIoError}, error), EntryKind::kOther);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
