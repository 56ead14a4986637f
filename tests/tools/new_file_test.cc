#include "host/new_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "host/piecewise.h"
#include "host/stop_signals.h"
#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::TempFolder;
using Naming = NewFile::Naming;

constexpr int kKilled = 256 + SIGKILL;
constexpr char kChanged[] = ": it has changed meanwhile, and was left as it is";

void WriteNew(const NewFile& file) { ASSERT_EQ(::write(file.Descriptor(), "new", 3), 3); }

// A folder with one file, A.
class NewFileTest : public ::testing::TestWithParam<Naming> {
 protected:
  NewFileTest() { folder.File("A", "old"); }

  bool Replace(const fs::path& path) {
    NewFile file;
    if (!file.Create(path, err, GetParam())) return false;
    WriteNew(file);
    return file.Commit(err);
  }

  std::ptrdiff_t Entries() const {
    return std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator());
  }

  TempFolder folder;
  std::string err;
};

INSTANTIATE_TEST_SUITE_P(Namings, NewFileTest,
                         ::testing::Values(Naming::kNamelessIfPossible, Naming::kNamed),
                         [](const auto& row) {
                           return row.param == Naming::kNamed ? "Named" : "Nameless";
                         });

TEST_P(NewFileTest, Commit_ReplacesTheFileAndKeepsItsMode) {
  fs::permissions(folder / "A", fs::perms{0604});
  EXPECT_TRUE(Replace(folder / "A")) << err;
  EXPECT_EQ(folder.Read("A"), "new");
  EXPECT_EQ(fs::status(folder / "A").permissions(), fs::perms{0604});
  EXPECT_EQ(Entries(), 1);
}

TEST_P(NewFileTest, Commit_KeepsTheOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser gives files away";
  ASSERT_EQ(::chown((folder / "A").c_str(), 65534, 65533), 0);
  EXPECT_TRUE(Replace(folder / "A")) << err;
  struct ::stat status {};
  ASSERT_EQ(::stat((folder / "A").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534U);
  EXPECT_EQ(status.st_gid, 65533U);
}

TEST_P(NewFileTest, NewName_GetsTheModeThatTheMaskGives) {
  const ::mode_t before = ::umask(027);
  EXPECT_TRUE(Replace(folder / "B")) << err;
  ::umask(before);
  EXPECT_EQ(fs::status(folder / "B").permissions(), fs::perms{0640});
}

TEST_P(NewFileTest, WithoutCommit_NothingChanges) {
  {
    NewFile file;
    ASSERT_TRUE(file.Create(folder / "A", err, GetParam())) << err;
    WriteNew(file);
  }
  EXPECT_EQ(folder.Read("A"), "old");
  EXPECT_EQ(Entries(), 1);
}

TEST_P(NewFileTest, TargetThatBecameAFolder_FailsAndLeavesNothing) {
  NewFile file;
  ASSERT_TRUE(file.Create(folder / "B", err, GetParam())) << err;
  folder.File("B/KEPT", "kept");
  EXPECT_FALSE(file.Commit(err));
  EXPECT_EQ(err, "cannot write " + (folder / "B").string() + kChanged);
  EXPECT_EQ(Entries(), 2);
}

TEST_P(NewFileTest, FileThatTookThePlaceMeanwhile_Stays) {
  NewFile file;
  ASSERT_TRUE(file.Create(folder / "B", err, GetParam())) << err;
  WriteNew(file);
  folder.File("B", "somebody's");
  EXPECT_FALSE(file.Commit(err));
  EXPECT_EQ(err, "cannot write " + (folder / "B").string() + kChanged);
  EXPECT_EQ(folder.Read("B"), "somebody's");
  EXPECT_EQ(Entries(), 2);
}

TEST_P(NewFileTest, FileThatHasChangedMeanwhile_Stays) {
  NewFile file;
  ASSERT_TRUE(file.Create(folder / "A", err, GetParam())) << err;
  WriteNew(file);
  folder.File("A", "edited");
  EXPECT_FALSE(file.Commit(err));
  EXPECT_EQ(err, "cannot write " + (folder / "A").string() + kChanged);
  EXPECT_EQ(folder.Read("A"), "edited");
  EXPECT_EQ(Entries(), 1);
}

TEST_P(NewFileTest, LinkToADevice_IsRefused) {
  folder.Link("null", "/dev/null");
  EXPECT_FALSE(Replace(folder / "null"));
  EXPECT_EQ(err, "cannot write " + (folder / "null").string() + ": it is not a regular file");
  EXPECT_EQ(fs::read_symlink(folder / "null"), "/dev/null");
}

TEST_P(NewFileTest, Pipe_IsRefused) {
  folder.Pipe("PIPE");
  NewFile file;
  EXPECT_FALSE(file.Create(folder / "PIPE", err, GetParam()));
  EXPECT_EQ(err, "cannot write " + (folder / "PIPE").string() + ": it is not a regular file");
}

TEST_P(NewFileTest, Signal_EndsWithItsStatusAndLeavesTheOldFileAlone) {
  for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
    const int status = test::RunInChild({}, [&] {
      ::signal(SIGHUP, SIG_DFL);
      EndOnSignals();
      NewFile file;
      if (!file.Create(folder / "A", err, GetParam())) return 1;
      ::kill(::getpid(), signal);
      return 2;
    });
    EXPECT_EQ(status, 128 + signal);
    EXPECT_EQ(folder.Read("A"), "old");
    EXPECT_EQ(Entries(), 1);
  }
}

TEST_P(NewFileTest, SignalDuringACopy_LeavesTheOldFileAndNothingElse) {
  folder.File("A", std::string(9 << 20, 'a'));
  const int status = test::RunInChild({}, [&] {
    EndOnSignals();
    NewFile file;
    const int from = ::open((folder / "A").c_str(), O_RDONLY);
    if (!file.Create(folder / "A", err, GetParam())) return 1;
    const bool copied = CopyInPieces(from, file.Descriptor(), 9 << 20,
                                     [](std::uint64_t) { ::kill(::getpid(), SIGINT); });
    return copied ? 2 : 3;
  });
  EXPECT_EQ(status, 130);
  EXPECT_EQ(fs::file_size(folder / "A"), 9U << 20);
  EXPECT_EQ(Entries(), 1);
}

TEST(NewFile, NamedOne_TakesNoNameThatIsInUse) {
  TempFolder folder;
  const std::string taken = ".virtdisk-" + std::to_string(::getpid()) + "-0";
  folder.File(taken, "kept");
  std::string err;
  NewFile file;
  ASSERT_TRUE(file.Create(folder / "A", err, Naming::kNamed)) << err;
  EXPECT_TRUE(file.Commit(err)) << err;
  EXPECT_EQ(folder.Read(taken), "kept");
  EXPECT_TRUE(folder.Exists("A"));
}

TEST(NewFile, NamelessOne_IsNotLeftBehindByAKill) {
  TempFolder folder;
  const int nameless = ::open(folder.Path().c_str(), O_TMPFILE | O_RDWR, 0600);
  if (nameless < 0) GTEST_SKIP() << "this file system has no files without a name";
  ::close(nameless);
  const int status = test::RunInChild({}, [&] {
    std::string err;
    NewFile file;
    if (!file.Create(folder / "A", err)) return 1;
    if (!fs::is_empty(folder.Path())) return 2;
    ::raise(SIGKILL);
    return 3;
  });
  EXPECT_EQ(status, kKilled);
  EXPECT_TRUE(fs::is_empty(folder.Path()));
}

TEST(EndOnSignals, IgnoredSignal_StaysIgnored) {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    const int status = test::RunInChild({}, [signal] {
      ::signal(signal, SIG_IGN);
      EndOnSignals();
      ::raise(signal);
      return 7;
    });
    EXPECT_EQ(status, 7) << signal;
  }
}

TEST(SignalsHeld, Signal_WaitsForTheEnd) {
  const int status = test::RunInChild({}, [] {
    EndOnSignals();
    int reached = 0;
    {
      const SignalsHeld held;
      ::raise(SIGTERM);
      reached = 1;
    }
    return reached;
  });
  EXPECT_EQ(status, 128 + SIGTERM);
}

TEST(LeaveToSignals, FileTakenBack_IsNotRemoved) {
  TempFolder folder;
  folder.File("A").File("B");
  const int status = test::RunInChild({}, [&] {
    EndOnSignals();
    const int a = LeaveToSignals((folder / "A").c_str());
    LeaveToSignals((folder / "B").c_str());
    TakeBackFromSignals(a);
    ::raise(SIGINT);
    return 0;
  });
  EXPECT_EQ(status, 128 + SIGINT);
  EXPECT_TRUE(folder.Exists("A"));
  EXPECT_FALSE(folder.Exists("B"));
}

TEST(LeaveToSignals, MoreFilesThanItKeeps_GiveNoNumber) {
  std::vector<int> numbers;
  while (numbers.empty() || numbers.back() >= 0) numbers.push_back(LeaveToSignals("x"));
  EXPECT_GT(numbers.size(), 4U);
  for (const int number : numbers) TakeBackFromSignals(number);
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
