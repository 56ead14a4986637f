#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <quorbix/virtdisk/fat16_fs_image.h>

#include "host/output_place.h"
#include "program_run.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/sizes.h"
#include "support/temp_folder.h"
#include "terminal_run.h"

// What a build does to what exists already.

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::kMiB;
using test::ProgramRun;
using test::RunVirtdisk;
using test::TempFolder;
using ::testing::HasSubstr;

// A folder DISK with a file, and an old image.
class BuildOutput : public ::testing::Test {
 protected:
  BuildOutput() {
    folder.File("DISK/A.TXT", "abc");
    test::WriteBytes(folder / "disk.img", old);
  }

  ProgramRun Build(const std::string& image, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"build", (folder / "DISK").string(), (folder / image).string()});
    return RunVirtdisk(more);
  }

  std::string Cat(const std::string& image) {
    return RunVirtdisk({"cat", (folder / image).string(), "A.TXT"}).out;
  }

  std::ptrdiff_t Entries() const {
    return std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator());
  }

  bool IsOld() const { return test::ReadBytes(folder / "disk.img") == old; }

  TempFolder folder;
  const std::vector<std::uint8_t> old = test::ImageCrafter().Bytes();
};

TEST_F(BuildOutput, OldImage_IsReplacedAndItsModeKept) {
  fs::permissions(folder / "disk.img", fs::perms{0604});
  EXPECT_EQ(Build("disk.img").status, 0);
  EXPECT_EQ(Cat("disk.img"), "abc");
  EXPECT_EQ(fs::status(folder / "disk.img").permissions(), fs::perms{0604});
  EXPECT_EQ(Entries(), 2);
}

TEST_F(BuildOutput, OldImageThatIsHeldOpen_StaysForItsHolder) {
  fs::create_hard_link(folder / "disk.img", folder / "held.img");
  EXPECT_EQ(Build("disk.img").status, 0);
  EXPECT_EQ(test::ReadBytes(folder / "held.img"), old);
}

TEST_F(BuildOutput, Link_StaysAndWhatItLeadsToIsReplaced) {
  folder.Link("link.img", "disk.img");
  EXPECT_EQ(Build("link.img").status, 0);
  EXPECT_TRUE(fs::is_symlink(folder / "link.img"));
  EXPECT_EQ(Cat("disk.img"), "abc");
}

TEST_F(BuildOutput, LinkThatLeadsNowhere_HasItsTargetMade) {
  folder.Link("link.img", "new.img");
  EXPECT_EQ(Build("link.img").status, 0);
  EXPECT_TRUE(fs::is_symlink(folder / "link.img"));
  EXPECT_EQ(Cat("new.img"), "abc");
}

TEST_F(BuildOutput, InPlace_WritesIntoTheFileThatExists) {
  fs::create_hard_link(folder / "disk.img", folder / "held.img");
  EXPECT_EQ(Build("disk.img", {"--in-place"}).status, 0);
  EXPECT_EQ(Cat("held.img"), "abc");
  EXPECT_EQ(fs::file_size(folder / "disk.img"), 3 * kMiB);
}

TEST_F(BuildOutput, InPlaceOntoALargerImage_CutsIt) {
  EXPECT_EQ(Build("disk.img", {"--size", "5M"}).status, 0);
  EXPECT_EQ(Build("disk.img", {"--size", "3M", "--in-place"}).status, 0);
  EXPECT_EQ(fs::file_size(folder / "disk.img"), 3 * kMiB);
}

TEST_F(BuildOutput, InPlaceWithoutAnImage_MakesOne) {
  EXPECT_EQ(Build("new.img", {"--in-place"}).status, 0);
  EXPECT_EQ(Cat("new.img"), "abc");
}

TEST_F(BuildOutput, FullDisk_LeavesTheOldImageAndNothingElse) {
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--in-place"}}) {
    const int status = test::RunInChild({.fileSizeLimit = kMiB}, [&] {
      const ProgramRun run = Build("disk.img", more);
      return run.status == 1 && run.err.find("Nothing was written to ") != std::string::npos ? 0
                                                                                             : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(IsOld()) << more.size();
    EXPECT_EQ(Entries(), 2);
  }
}

// The system gives room below the end of a file whatever the limit is, and then takes no data
// there.
TEST_F(BuildOutput, InPlaceBeyondALimitOnFiles_LeavesTheOldImage) {
  ASSERT_EQ(Build("disk.img", {"--size", "3M"}).status, 0);
  const std::vector<std::uint8_t> before = test::ReadBytes(folder / "disk.img");
  folder.File("DISK/A.TXT", "new");
  for (const std::uint64_t limit : {kMiB, 3 * kMiB - 1}) {
    const int status = test::RunInChild({.fileSizeLimit = limit}, [&] {
      const ProgramRun run = Build("disk.img", {"--size", "3M", "--in-place"});
      const bool isTold = run.err.find("File too large\n  Nothing was written") != run.err.npos;
      return run.status == 1 && isTold ? 0 : 1;
    });
    EXPECT_EQ(status, 0) << limit;
    EXPECT_EQ(test::ReadBytes(folder / "disk.img"), before);
  }
  const int status = test::RunInChild({.fileSizeLimit = 3 * kMiB}, [&] {
    return Build("disk.img", {"--size", "3M", "--in-place"}).status;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Cat("disk.img"), "new");
}

TEST_F(BuildOutput, Document_IsRefusedUnlessForced) {
  folder.File("letter.txt", "Dear aunt,");
  const ProgramRun run = Build("letter.txt");
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("letter.txt exists, and is no FAT16 disk image"));
  EXPECT_THAT(run.err, HasSubstr("--force"));
  EXPECT_EQ(folder.Read("letter.txt"), "Dear aunt,");
  EXPECT_EQ(Build("letter.txt", {"--in-place"}).status, 3);
  EXPECT_EQ(Build("letter.txt", {"--force"}).status, 0);
  EXPECT_EQ(Cat("letter.txt"), "abc");
}

TEST_F(BuildOutput, FloppyOfFat12_IsNoImageToReplace) {
  test::ImageCrafter floppy({.partitioned = false, .clusters = 5000});
  const std::string type = "FAT12";
  for (std::size_t i = 0; i < type.size(); ++i) {
    floppy.Byte(54 + i, static_cast<std::uint8_t>(type[i]));
  }
  test::WriteBytes(folder / "floppy.img", floppy.Bytes());
  const ProgramRun run = Build("floppy.img");
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("floppy.img exists, and is no FAT16 disk image"));
  EXPECT_EQ(test::ReadBytes(folder / "floppy.img"), floppy.Bytes());
}

TEST_F(BuildOutput, DiskWithOtherPartitions_IsRefusedUnlessForced) {
  test::ImageCrafter disk({.trailingSectors = 100});
  disk.Byte(462 + 4, 0x83).U32(462 + 8, 95);
  test::WriteBytes(folder / "disk.img", disk.Bytes());
  EXPECT_EQ(LookAtOutput(folder / "disk.img"), OutputKind::kDiskImage);  // of no length
  disk.U32(462 + 12, 100);
  test::WriteBytes(folder / "disk.img", disk.Bytes());
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--in-place"}}) {
    const ProgramRun run = Build("disk.img", more);
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, HasSubstr("disk.img has other partitions, which would be lost\n"));
    EXPECT_EQ(test::ReadBytes(folder / "disk.img"), disk.Bytes());
  }
  EXPECT_EQ(Build("disk.img", {"--force"}).status, 0);
}

TEST_F(BuildOutput, ProtectedImage_IsRefusedUnlessForced) {
  for (const unsigned mode : {0444u, 0u}) {
    fs::permissions(folder / "disk.img", fs::perms{mode});
    fs::permissions(folder.Path(), fs::perms{0777});
    const int status =
        test::RunInChild({.dropRoot = true}, [this] { return Build("disk.img").status; });
    EXPECT_EQ(status, 3) << mode;
    fs::permissions(folder / "disk.img", fs::perms{0644});
    EXPECT_TRUE(IsOld());
  }
  fs::permissions(folder / "disk.img", fs::perms{0444});
  const int forced = test::RunInChild({.dropRoot = true},
                                      [this] { return Build("disk.img", {"--force"}).status; });
  EXPECT_EQ(forced, 0);
}

TEST_F(BuildOutput, BlankFile_IsNoLoss) {
  folder.File("empty.img").File("blank.img");
  fs::resize_file(folder / "blank.img", kMiB);
  EXPECT_EQ(Build("empty.img").status, 0);
  EXPECT_EQ(Build("blank.img").status, 0);
}

TEST_F(BuildOutput, PlaceInsideTheFolder_IsRefusedUnlessForced) {
  folder.Folder("DISK/SUB").Link("other", "DISK");
  for (const char* place : {"DISK/disk.img", "DISK/SUB/disk.img", "other/disk.img"}) {
    const ProgramRun run = Build(place);
    EXPECT_EQ(run.status, 3) << place;
    EXPECT_THAT(run.err, HasSubstr("lies inside"));
    EXPECT_FALSE(folder.Exists(place));
  }
  EXPECT_EQ(Build("DISK/disk.img", {"--force"}).status, 0);
}

TEST_F(BuildOutput, PlaceThatALinkInTheFolderLeadsTo_IsRefusedUnlessForced) {
  folder.Folder("OTHER").Link("DISK/SUB/link", "../../OTHER").Link("DISK/self", "../disk.img");
  const ProgramRun run = Build("OTHER/new.img");
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err,
              HasSubstr("DISK/SUB/link is the folder of " + (folder / "OTHER/new.img").string()));
  EXPECT_FALSE(folder.Exists("OTHER/new.img"));
  EXPECT_THAT(Build("disk.img").err, HasSubstr("DISK/self is " + (folder / "disk.img").string()));
  EXPECT_TRUE(IsOld());
  fs::remove(folder / "DISK/self");
  fs::create_hard_link(folder / "disk.img", folder / "DISK/self");
  EXPECT_EQ(Build("disk.img").status, 3);
  EXPECT_TRUE(IsOld());
  EXPECT_EQ(Build("disk.img", {"--force"}).status, 0);
}

TEST_F(BuildOutput, FolderWithALongerName_IsNotTheFolder) {
  folder.Folder("DISK2");
  EXPECT_EQ(Build("DISK2/disk.img").status, 0);
}

TEST_F(BuildOutput, DevicesPipesAndFolders_AreRefusedWhateverIsForced) {
  folder.Pipe("pipe").Folder("place");
  for (const char* place : {"pipe", "place", "/dev/null"}) {
    const ProgramRun run = Build(place, {"--force"});
    EXPECT_EQ(run.status, 3) << place;
  }
  EXPECT_TRUE(fs::is_fifo(folder / "pipe"));
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

// Another user's folder of his own image, and one where each may remove but his own.
TEST_F(BuildOutput, PlaceThatTakesNoNewFile_IsToldOfTheOtherWay) {
  folder.Folder("shut").Folder("sticky");
  fs::permissions(folder.Path(), fs::perms{0755});
  for (const auto& [name, mode] : {std::pair{"shut", 0555u}, {"sticky", 01777u}}) {
    const std::string image = std::string(name) + "/disk.img";
    test::WriteBytes(folder / image, old);
    fs::permissions(folder / image, fs::perms{0666});
    fs::permissions(folder / name, fs::perms{mode});
    folder.File("new", "new");
    const int status = test::RunInChild({.dropRoot = true}, [&] {
      const std::string hint = " --in-place writes into the image itself.\n";
      const bool isTold = Build(image).err.find(hint) != std::string::npos;
      const int done = Build(image, {"--in-place"}).status;
      const std::vector<std::string> put{"put", (folder / image).string(), "A.TXT",
                                         (folder / "new").string()};
      const bool isToldByPut = RunVirtdisk(put).err.find(hint) != std::string::npos;
      return isTold && isToldByPut ? done : 9;
    });
    EXPECT_EQ(status, 0) << name;
    fs::permissions(folder / name, fs::perms{0777});
  }
}

TEST_F(BuildOutput, WithoutTheRightToWrite_IsToldBeforeTheWork) {
  folder.Folder("shut");
  fs::permissions(folder.Path(), fs::perms{0755});
  fs::permissions(folder / "shut", fs::perms{0755});
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const ProgramRun run = Build("shut/disk.img");
    return run.status == 1 && run.err.find("Permission denied") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

// Starts the built program, and hands its number to `meanwhile`; returns how it ended.
template <class Meanwhile>
int RunBuildAsChild(const std::vector<std::string>& arguments, Meanwhile meanwhile) {
  std::vector<std::string> all = arguments;
  all.insert(all.begin(), VIRTDISK_PROGRAM);
  std::vector<char*> argv;
  for (std::string& argument : all) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const ::pid_t child = ::fork();
  if (child == 0) {
    ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  meanwhile(child);
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
}

// Bytes that a process has read or written so far ("rchar", "wchar"); 0 when it has gone.
std::uint64_t MovedBy(::pid_t process, const std::string& what) {
  std::ifstream lines("/proc/" + std::to_string(process) + "/io");
  std::string name;
  std::uint64_t bytes = 0;
  while (lines >> name >> bytes) {
    if (name == what + ":") return bytes;
  }
  return 0;
}

bool HasEnded(::pid_t process) {
  ::siginfo_t info{};
  return ::waitid(P_PID, static_cast<::id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         info.si_pid != 0;
}

void WaitUntilMoved(::pid_t process, const std::string& what, std::uint64_t bytes) {
  while (MovedBy(process, what) < bytes && !HasEnded(process)) std::this_thread::yield();
}

TEST_F(BuildOutput, Signal_EndsABuildAndLeavesTheOldImageAndNothingElse) {
  folder.File("DISK/LARGE.BIN");
  fs::resize_file(folder / "DISK/LARGE.BIN", 200 * kMiB);
  for (const char* what : {"rchar", "wchar"}) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      const int status =
          RunBuildAsChild({"build", (folder / "DISK").string(), (folder / "disk.img").string()},
                          [&](::pid_t child) {
                            WaitUntilMoved(child, what, 8 * kMiB);
                            ::kill(child, signal);
                          });
      EXPECT_EQ(status, 128 + signal) << what;
      EXPECT_TRUE(IsOld());
      EXPECT_EQ(Entries(), 2);
    }
  }
}

// A build on a terminal of 80 columns, held up for longer than a progress line waits.
class SlowBuild : public BuildOutput {
 protected:
  SlowBuild() {
    folder.File("DISK/LARGE.BIN");
    fs::resize_file(folder / "DISK/LARGE.BIN", 300 * kMiB);
    const std::string disk = (folder / "DISK").string();
    const std::string image = (folder / "disk.img").string();
    const ::winsize size{24, 80, 0, 0};
    child = ::forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
      ::execl(VIRTDISK_PROGRAM, VIRTDISK_PROGRAM, "build", disk.c_str(), image.c_str(), nullptr);
      ::_exit(127);
    }
    WaitUntilMoved(child, "rchar", 8 * kMiB);
    ::kill(child, SIGSTOP);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    ::kill(child, SIGCONT);
  }

  // Up to the first progress line.
  std::string ReadProgress() const {
    std::string shown;
    char c = 0;
    while (shown.find(" MiB of ") == std::string::npos && ::read(terminal, &c, 1) == 1) shown += c;
    return shown;
  }

  int terminal = -1;
  ::pid_t child = 0;
};

TEST_F(SlowBuild, Progress_IsShownAndGoesBeforeTheSummary) {
  const std::string shown = test::ReadTerminal(terminal, child);
  EXPECT_THAT(shown, ::testing::ContainsRegex(
                         "\r(copying|writing): [0-9.]+ MiB of 30[0-9](\\.[0-9])? MiB, "));
  EXPECT_THAT(shown, ::testing::ContainsRegex("\r +\r(\r|\n|.)*Built "));
}

TEST_F(SlowBuild, Signal_TakesTheProgressLineAway) {
  EXPECT_THAT(ReadProgress(), ::testing::ContainsRegex("\r(copying|writing): "));
  ::kill(child, SIGINT);
  int status = 0;
  EXPECT_THAT(test::ReadTerminal(terminal, child, &status), ::testing::EndsWith("   \r"));
  EXPECT_EQ(status, 130);
  EXPECT_TRUE(IsOld());
  EXPECT_EQ(Entries(), 2);
}

TEST_F(BuildOutput, KillAtAnyMoment_LeavesTheOldImageOrTheNewOne) {
  folder.File("DISK/B.BIN", std::string(8 * kMiB, 'b'));
  for (int i = 0; i < 40; ++i) {
    test::WriteBytes(folder / "disk.img", old);
    RunBuildAsChild({"build", (folder / "DISK").string(), (folder / "disk.img").string()},
                    [&](::pid_t child) {
                      std::this_thread::sleep_for(std::chrono::milliseconds(i));
                      ::kill(child, SIGKILL);
                    });
    if (IsOld()) continue;
    Fat16FsImage image;
    std::string err;
    std::vector<std::uint8_t> content;
    ASSERT_TRUE(image.LoadFromBytes(test::ReadBytes(folder / "disk.img"), err)) << err;
    ASSERT_TRUE(image.ReadFile("B.BIN", content, err)) << err;
    EXPECT_EQ(content, std::vector<std::uint8_t>(8 * kMiB, 'b'));
    EXPECT_EQ(image.ImageBytes().size(), 9 * kMiB);
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
