#include "guard/state_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "guard/vocabulary.h"
#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using test::RunInChild;
using test::TempFolder;
using testing::HasSubstr;

State Known() {
  State state;
  state.memory = Knows({{"a", "A", 'a'}});
  return state;
}

TEST(StateFile, SavedState_IsLoadedAgain) {
  TempFolder folder;
  State state;
  std::string err;
  ASSERT_TRUE(SaveState(folder.Path(), Known(), err)) << err;
  EXPECT_EQ(LoadState(folder.Path(), state, err), StateLoad::kLoaded);
  EXPECT_EQ(state, Known());
  EXPECT_EQ(folder.Files().size(), 1u);
}

TEST(StateFile, StateThatCannotBeWritten_LeavesNothingBehind) {
  TempFolder folder;
  const int status = RunInChild({.fileSizeLimit = 10}, [&] {
    std::string err;
    return SaveState(folder.Path(), Known(), err) ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(folder.Files().size(), 0u);
}

TEST(StateFile, MissingState_IsNone) {
  TempFolder folder;
  State state = Known();
  std::string err;
  EXPECT_EQ(LoadState(folder / "none", state, err), StateLoad::kNone);
  EXPECT_EQ(state, State());
}

TEST(StateFile, DamagedState_IsTold) {
  TempFolder folder;
  folder.File("state", "virtdisk sync state 1\nchecksum 0\nfile");
  State state;
  std::string err;
  EXPECT_EQ(LoadState(folder.Path(), state, err), StateLoad::kDamaged);
  EXPECT_EQ(err, "its checksum is wrong");
}

TEST(StateFile, FileLargerThanAnyState_IsDamagedWithoutBeingRead) {
  TempFolder folder;
  folder.File("state");
  std::filesystem::resize_file(folder / "state", std::uintmax_t{1} << 40);  // of holes
  State state;
  std::string err;
  EXPECT_EQ(LoadState(folder.Path(), state, err), StateLoad::kDamaged);
  EXPECT_EQ(err, "it is too large");
}

TEST(StateFile, StateThatCannotBeRead_IsNotTakenForNone) {
  TempFolder folder;
  std::string err;
  ASSERT_TRUE(SaveState(folder.Path(), Known(), err));
  folder.Forbidden("state");
  const int status = RunInChild({.dropRoot = true}, [&] {
    State state;
    return LoadState(folder.Path(), state, err) == StateLoad::kDamaged ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(StateFile, FolderInItsPlace_IsNotTakenForNone) {
  TempFolder folder;
  folder.Folder("state");
  State state;
  std::string err;
  EXPECT_EQ(LoadState(folder.Path(), state, err), StateLoad::kDamaged);
}

TEST(StateFile, FullDisk_LeavesTheOldState) {
  TempFolder folder;
  std::string err;
  ASSERT_TRUE(SaveState(folder.Path(), Known(), err));
  const int status = RunInChild({.fileSizeLimit = 10},
                                [&] { return SaveState(folder.Path(), State(), err) ? 1 : 0; });
  EXPECT_EQ(status, 0);
  State state;
  EXPECT_EQ(LoadState(folder.Path(), state, err), StateLoad::kLoaded);
  EXPECT_EQ(state, Known());
}

TEST(StateLock, SecondProcess_IsToldWhoHasIt) {
  TempFolder folder;
  StateLock lock;
  std::string err;
  ASSERT_EQ(lock.Take(folder.Path(), err), Locking::kTaken) << err;
  const std::string holder = std::to_string(::getpid());
  const int status = RunInChild({}, [&] {
    StateLock second;
    if (second.Take(folder.Path(), err) != Locking::kHeld) return 1;
    return err == "process " + holder + " keeps this pair in step already" ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

TEST(StateLock, SecondObjectInOneProcess_DoesNotGetItEither) {
  TempFolder folder;
  StateLock first;
  StateLock second;
  std::string err;
  ASSERT_EQ(first.Take(folder.Path(), err), Locking::kTaken);
  EXPECT_EQ(second.Take(folder.Path(), err), Locking::kHeld);
  EXPECT_EQ(first.Take(folder.Path(), err), Locking::kTaken);
}

TEST(StateLock, ProcessThatEnds_GivesItBack) {
  TempFolder folder;
  RunInChild({}, [&] {
    StateLock* lock = new StateLock;  // never destroyed, as when the process is killed
    std::string err;
    return lock->Take(folder.Path(), err) == Locking::kTaken ? 0 : 1;
  });
  StateLock lock;
  std::string err;
  EXPECT_EQ(lock.Take(folder.Path(), err), Locking::kTaken) << err;
}

TEST(StateLock, FileOfThatNameThatIsNoLock_IsLeftAlone) {
  TempFolder folder;
  for (const char* text :
       {"dependencies: 1\n", "12 a\n", "1234567890123456789012345678901234567890"}) {
    folder.File("lock", text);
    StateLock lock;
    std::string err;
    EXPECT_EQ(lock.Take(folder.Path(), err), Locking::kFailed);
    EXPECT_EQ(err, (folder / "lock").string() + " is no lock of this program");
    EXPECT_FALSE(lock.IsHeld());
    EXPECT_EQ(folder.Read("lock"), text);
  }
}

TEST(StateFile, NeighbourNamedLikeANewState_IsLeftAlone) {
  TempFolder folder;
  folder.File("state.new", "mine");
  std::string err;
  ASSERT_TRUE(SaveState(folder.Path(), Known(), err)) << err;
  EXPECT_EQ(folder.Read("state.new"), "mine");
}

TEST(MakeStateFolder, Parents_AreMadeToo) {
  TempFolder folder;
  std::string err;
  EXPECT_TRUE(MakeStateFolder(folder / "a/b", err));
  EXPECT_TRUE(folder.Exists("a/b"));
  folder.File("file");
  EXPECT_FALSE(MakeStateFolder(folder / "file/b", err));
  EXPECT_THAT(err, HasSubstr("cannot make"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
