// A signal ends what only reads at once, wherever it comes: at any read from the image, and while
// the system lets a file be waited for.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "host/stop_signals.h"
#include "support/child_process.h"
#include "support/kept_lease.h"
#include "support/next_function.h"
#include "support/temp_folder.h"
#include "tools/built_program.h"
#include "tools/program_run.h"

namespace {

int readsBeforeTheEnd = -1;  // negative: nothing happens
int comingSignal = SIGTERM;

}  // namespace

// Stands in front of the C library's function for the whole program.
extern "C" ssize_t pread(int file, void* bytes, size_t size, off_t offset) {
  if (readsBeforeTheEnd == 0) ::raise(comingSignal);
  if (readsBeforeTheEnd >= 0) --readsBeforeTheEnd;
  using quorbix::virtdisk::test::NextOf;
  return NextOf<ssize_t(int, void*, size_t, off_t)>("pread")(file, bytes, size, offset);
}

namespace quorbix::virtdisk::test {
namespace {

using Command = std::vector<std::string>;

constexpr std::array<int, 3> kEndingSignals{SIGINT, SIGTERM, SIGHUP};

class InterruptedReading : public ::testing::Test {
 protected:
  InterruptedReading() {
    folder.File("DISK/A.TXT", std::string(3000, 'a')).File("DISK/SUB/B.TXT", "b");
    const ProgramRun built = RunVirtdisk({"build", Path("DISK"), Path("disk.img")});
    EXPECT_EQ(built.status, 0) << built.err;
  }

  std::string Path(const std::string& name) const { return (folder / name).string(); }

  // Of those that read an image.
  std::vector<Command> Commands() const {
    const std::string image = Path("disk.img");
    return {{"info", image}, {"ls", image, "-R"},     {"find", image, "A"},
            {"tree", image}, {"cat", image, "a.txt"}, {"get", image, "a.txt", Path("GOT")},
            {"map", image},  {"verify", image}};
  }

  TempFolder folder;
};

TEST_F(InterruptedReading, SignalAtAnyRead_EndsItAndLeavesNothing) {
  for (const Command& command : Commands()) {
    SCOPED_TRACE(command[0]);
    int reads = 0;
    for (bool ended = true; ended; ++reads) {
      const int signal = kEndingSignals[static_cast<std::size_t>(reads) % kEndingSignals.size()];
      std::filesystem::remove(Path("GOT"));
      const int status = RunInChild({}, [&] {
        ::signal(signal, SIG_DFL);  // which whoever runs the tests may ignore
        tool::EndOnSignals();
        comingSignal = signal;
        readsBeforeTheEnd = reads;
        return RunVirtdisk(command).status;
      });
      ended = status != 0;
      EXPECT_EQ(status, ended ? 128 + signal : 0);
      EXPECT_EQ(folder.Exists("GOT"), !ended && command[0] == "get");
      if (HasFailure()) return;
    }
    EXPECT_GE(reads, 4);  // two boot sectors, the FAT, the root
  }
}

TEST_F(InterruptedReading, SignalWhileAFileIsWaitedFor_EndsEveryCommand) {
  std::vector<Command> commands = Commands();
  commands.push_back({"measure", Path("DISK")});
  for (const Command& command : commands) {
    for (const int signal : kEndingSignals) {
      SCOPED_TRACE(command[0] + ", signal " + std::to_string(signal));
      const test::KeptLease lease(Path(command[0] == "measure" ? "DISK/A.TXT" : "disk.img"));
      if (!lease.Holds()) GTEST_SKIP() << "this file system has no leases";
      Background program(command, folder / "log");
      ASSERT_TRUE(lease.WaitUntilAsked());
      const auto begin = std::chrono::steady_clock::now();
      EXPECT_EQ(program.End(signal), 128 + signal);
      EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
      EXPECT_EQ(folder.Read("log"), "");
    }
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::test
