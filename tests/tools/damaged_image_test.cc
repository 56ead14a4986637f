#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "program_run.h"
#include "support/image_crafter.h"
#include "support/search_effort.h"
#include "support/temp_folder.h"

// Images with some bytes changed at random: every command that reads them ends by itself, with data
// or a message, and writes nothing outside its destination.

namespace quorbix::virtdisk::test {
namespace {

std::vector<std::uint8_t> SoundDisk() {
  ImageCrafter crafter({.clusters = 30});
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1200}).Chain({2, 3, 9});
  crafter.Directory("SUB", 5).Chain({5, 6}).InCluster(5).DotEntries(5, 0);
  for (int i = 0; i < 18; ++i) {
    crafter.File("F" + std::to_string(i), {.firstCluster = 7, .size = 9});
  }
  crafter.Directory("IN", 8).Chain({7}).Chain({8}).InCluster(8).DotEntries(8, 5).File("E");
  return crafter.Bytes();
}

// The bytes that say how the disk is laid out: partition table, boot sector, FATs, root, SUB.
constexpr std::size_t kLayoutBytes = 9 * 512;

class DamagedImage : public ::testing::TestWithParam<unsigned> {};

TEST_P(DamagedImage, EveryCommand_EndsWithDataOrAMessage) {
  std::mt19937 random(GetParam());
  TempFolder folder;
  folder.Folder("BOX");
  const std::string path = (folder / "disk.img").string();
  const std::string box = (folder / "BOX/DEST").string();
  const int rounds = IsWholeSearch() ? 25 : 8;
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::uint8_t> bytes = SoundDisk();
    for (auto changes = 1 + random() % 8; changes > 0; --changes) {
      static const std::vector<std::uint8_t> values{0, 1, 2, 5, 8, '.', '/', '\\', 0x7F, 0xFF};
      bytes[446 + random() % (kLayoutBytes - 446)] = values[random() % values.size()];
    }
    if (random() % 4 == 0) bytes.resize(random() % bytes.size());
    WriteBytes(path, bytes);
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"info", path, "--json"},
                                               {"ls", path, "-lR"},
                                               {"ls", path, "--json"},
                                               {"map", path},
                                               {"map", path, "-o", "-"},
                                               {"cat", path, "/SUB/F3"},
                                               {"tree", path, "--all"},
                                               {"ls", path, "-R", "--all", "--force"},
                                               {"get", path, "/", box, "--all", "--force"},
                                               {"get", path, "/", box}}) {
      const ProgramRun run = RunVirtdisk(arguments);
      const bool isTold = (run.status == 1 || run.status == 3) && !run.err.empty();
      ASSERT_TRUE(run.status == 0 || isTold) << arguments[0];
    }
    ASSERT_LE(RunVirtdisk({"verify", path}).status, 1);
    std::filesystem::remove_all(box);
    ASSERT_TRUE(std::filesystem::is_empty(folder / "BOX"));
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, DamagedImage, ::testing::Range(1U, 9U));

}  // namespace
}  // namespace quorbix::virtdisk::test
