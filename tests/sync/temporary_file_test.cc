// What others can do to the temporary file of a write, and see of it, between one call of the
// system and the next.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <utility>

#include "support/next_function.h"
#include "support/opening.h"
#include "support/temp_folder.h"
#include "sync/host_write.h"

namespace {

using quorbix::virtdisk::test::NextOf;

// Something to do once before a file is created, and before a file's mode is set.
std::function<void()> beforeCreating;
std::function<void(int file)> beforeSettingTheMode;

}  // namespace

int quorbix::virtdisk::test::InPlaceOf(const Opening& opening) {
  const bool isMade = (opening.flags & O_CREAT) != 0;
  if (isMade && beforeCreating) std::exchange(beforeCreating, nullptr)();
  return opening.Next();
}

// These stand in front of the C library's functions for the whole program.

extern "C" int fchmod(int file, mode_t mode) noexcept {
  if (beforeSettingTheMode) std::exchange(beforeSettingTheMode, nullptr)(file);
  return NextOf<int(int, mode_t)>("fchmod")(file, mode);
}

namespace quorbix::virtdisk::internal {
namespace {

using test::TempFolder;

TEST(TemporaryFile, LinkThatTakesItsPlaceJustBeforeItIsCreated_IsNotWrittenThrough) {
  TempFolder folder;
  folder.File("A.TXT", "old").File("elsewhere", "untouched");
  beforeCreating = [&] { folder.Link("A.TXT.quorbix_tmp", folder / "elsewhere"); };
  std::string err;
  EXPECT_FALSE(WriteFileAtomically(folder / "A.TXT", {'n', 'e', 'w'}, err));
  EXPECT_EQ(err, "Cannot open temp file: " + (folder / "A.TXT.quorbix_tmp").native());
  EXPECT_EQ(folder.Read("elsewhere"), "untouched");
  EXPECT_EQ(folder.Read("A.TXT"), "old");
}

TEST(TemporaryFile, OfAPrivateFile_IsPrivateFromItsCreationOn) {
  TempFolder folder;
  folder.File("A.TXT", "old");
  std::filesystem::permissions(folder / "A.TXT", std::filesystem::perms{0600});
  unsigned modeWhenCreated = ~0u;
  beforeSettingTheMode = [&](int file) {
    struct ::stat status;
    if (::fstat(file, &status) == 0) modeWhenCreated = status.st_mode & 0777u;
  };
  const ::mode_t mask = ::umask(0);
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", {'n', 'e', 'w'}, err));
  ::umask(mask);
  EXPECT_EQ(modeWhenCreated, 0600u);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
