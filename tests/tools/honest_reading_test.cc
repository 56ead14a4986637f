// What the reading commands refuse, and what they tell of disks that are damaged, changed or large
// while they read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "program_run.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/instrumented.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

ImageCrafter DiskOfOneFile() {
  return ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "aaa");
}

ImageCrafter ThatSays(const std::string& type) {
  ImageCrafter crafter = DiskOfOneFile();
  for (std::size_t i = 0; i < 5; ++i) {
    crafter.Byte(512 + 54 + i, static_cast<std::uint8_t>(type[i]));
  }
  return crafter;
}

class ReadingOther : public ::testing::Test {
 protected:
  TempFolder folder;
};

class ReadingCommand : public ::testing::TestWithParam<std::vector<std::string>> {
 protected:
  // With the image after the command's name.
  ProgramRun Run(const ImageCrafter& crafter, const std::vector<std::string>& options = {}) {
    WriteBytes(folder / "disk.img", crafter.Bytes());
    std::vector<std::string> arguments = GetParam();
    arguments.insert(arguments.begin() + 1, (folder / "disk.img").string());
    if (arguments[0] == "get") arguments.push_back((folder / "A.TXT").string());
    if (arguments[0] == "put") arguments.push_back((folder.File("new", "new") / "new").string());
    arguments.insert(arguments.end(), options.begin(), options.end());
    return RunVirtdisk(arguments);
  }

  TempFolder folder;
};

TEST_P(ReadingCommand, VolumeThatSaysFat12_IsRefusedAndReadUnderForce) {
  const ProgramRun run = Run(ThatSays("FAT12"));
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.out, IsEmpty());
  EXPECT_FALSE(folder.Exists("A.TXT"));
  EXPECT_EQ(ReadBytes(folder / "disk.img"), ThatSays("FAT12").Bytes());
  EXPECT_THAT(run.err, HasSubstr("says FAT12: its files would be misread\n"));
  EXPECT_THAT(run.err, HasSubstr("--force"));
  EXPECT_EQ(Run(ThatSays("FAT12"), {"--force"}).status, 0);
}

TEST_F(ReadingOther, VerifyAndMapOfFat12_SayThatItIsNoFat16) {
  WriteBytes(folder / "disk.img", ThatSays("FAT12").Bytes());
  const std::string image = (folder / "disk.img").string();
  const ProgramRun verify = RunVirtdisk({"verify", image});
  EXPECT_EQ(verify.status, 1);
  EXPECT_THAT(verify.out,
              ::testing::EndsWith("\nThis is no FAT16 volume; the rest was not looked at.\n"));
  EXPECT_THAT(RunVirtdisk({"map", image}).err, HasSubstr("disk.img is no FAT16 volume"));
  EXPECT_EQ(RunVirtdisk({"map", image, "--json"}).Json()["remark"],
            image + " is no FAT16 volume: what is drawn tells little; `virtdisk info` says more");
}

TEST_F(ReadingOther, DiskOfOtherPartitionsAlone_IsCalledThat) {
  std::vector<std::uint8_t> disk(8192);
  const std::vector<std::uint8_t> table{0, 0, 0, 0, 0x05, 0, 0, 0, 2, 0, 0, 0, 6, 0, 0, 0,
                                        0, 0, 0, 0, 0xEE, 0, 0, 0, 8, 0, 0, 0, 8, 0, 0, 0};
  std::copy(table.begin(), table.end(), disk.begin() + 446);
  disk[510] = 0x55;
  disk[511] = 0xAA;
  const std::string image = (folder / "disk.img").string();
  WriteBytes(image, disk);
  const ProgramRun run = RunVirtdisk({"ls", image});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("\n  " + image + " has partitions of type 0x05, 0xEE only;"));
  disk[446 + 4] = 0x06;
  disk[446 + 8] = 16;  // which the image does not reach
  WriteBytes(image, disk);
  EXPECT_THAT(RunVirtdisk({"ls", image}).err, HasSubstr("is it the right file, and whole?"));
}

// At the last sector that has a number, of a disk that is a hole.
TEST_F(ReadingOther, VolumeBeyondTheNumbersOfSectors_IsNotTakenForAnEmptyOne) {
  const std::uint64_t place = std::uint64_t{0xFFFFFFFF} * 512;
  const std::vector<std::uint8_t> bytes = DiskOfOneFile().U32(446 + 8, 0xFFFFFFFF).Bytes();
  const std::string image = (folder / "disk.img").string();
  std::ofstream disk(image, std::ios::binary);
  const auto write = [&](std::size_t from, std::size_t count) {
    disk.write(reinterpret_cast<const char*>(bytes.data()) + from,
               static_cast<std::streamsize>(count));
  };
  write(0, 512);
  disk.seekp(static_cast<std::streamoff>(place));
  write(512, bytes.size() - 512);
  disk.close();
  if (!disk) GTEST_SKIP() << "this file system has no files of 2 TiB";
  for (const char* command : {"ls", "info", "map"}) {
    const ProgramRun run = RunVirtdisk({command, image});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("lies beyond what numbers of sectors can tell"));
  }
  EXPECT_THAT(RunVirtdisk({"verify", image}).out,
              HasSubstr("lie beyond what numbers of sectors can tell\n"));
}

TEST_F(ReadingOther, SectorsOf1024Bytes_AreNamedAsTheReason) {
  const std::string image = (folder / "disk.img").string();
  WriteBytes(image, DiskOfOneFile().U16(512 + 11, 1024).Bytes());
  for (const char* command : {"ls", "info", "map"}) {
    const ProgramRun run = RunVirtdisk({command, image});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("The volume in " + image +
                                   " has sectors of 1,024 bytes; "
                                   "virtdisk reads those of 512 only"));
  }
  WriteBytes(image, DiskOfOneFile().U16(512 + 11, 1000).Bytes());
  EXPECT_THAT(RunVirtdisk({"ls", image}).err, HasSubstr("is it the right file, and whole?"));
}

TEST_P(ReadingCommand, VolumeThatSaysFat32_IsRefused) {
  EXPECT_EQ(Run(ThatSays("FAT32")).status, 3);
}

TEST_P(ReadingCommand, RealFat32Volume_IsRefusedEvenUnderForce) {
  const ImageCrafter crafter = ThatSays("FAT32").U16(512 + 22, 0).U16(512 + 17, 0);
  EXPECT_EQ(Run(crafter).status, 3);
  const ProgramRun run = Run(crafter, {"--force"});
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("holds a FAT32 volume\n  virtdisk reads FAT16 only"));
}

TEST_P(ReadingCommand, SmallVolumeThatSaysNothing_IsRefused) {
  const ProgramRun run = Run(ThatSays("     "));
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.err, HasSubstr("has only 90 clusters, which makes it FAT12, and does not say"));
  EXPECT_EQ(ReadBytes(folder / "disk.img"), ThatSays("     ").Bytes());
  EXPECT_EQ(Run(ThatSays("     "), {"--force"}).status, 0);
}

TEST_P(ReadingCommand, SmallVolumeThatSaysFat16_IsRead) {
  EXPECT_EQ(Run(ThatSays("FAT16")).status, 0);
}

TEST_P(ReadingCommand, LargeVolumeThatSaysNothing_IsRead) {
  ImageCrafter crafter({.sectorsPerFat = 16, .clusters = 4085});
  crafter.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "aaa");
  EXPECT_EQ(Run(crafter.Byte(512 + 54, ' ').Byte(512 + 55, ' ')).status, 0);
}

INSTANTIATE_TEST_SUITE_P(Each, ReadingCommand,
                         ::testing::Values(std::vector<std::string>{"ls"},
                                           std::vector<std::string>{"ls", "/", "-R"},
                                           std::vector<std::string>{"find", "a"},
                                           std::vector<std::string>{"tree"},
                                           std::vector<std::string>{"cat", "/A.TXT"},
                                           std::vector<std::string>{"get", "/A.TXT"},
                                           std::vector<std::string>{"get", "/A.TXT", "--all"},
                                           std::vector<std::string>{"put", "/A.TXT"}),
                         [](const auto& command) {
                           const std::string& last = command.param.back();
                           if (last == "-R") return command.param[0] + "Recursive";
                           return command.param[0] + (last == "--all" ? "All" : "");
                         });

class FoldersOfHiddenEntries : public ::testing::TestWithParam<std::vector<std::string>> {};

INSTANTIATE_TEST_SUITE_P(Each, FoldersOfHiddenEntries,
                         ::testing::Values(std::vector<std::string>{"ls", "--all"},
                                           std::vector<std::string>{"tree", "--all"},
                                           std::vector<std::string>{"find", "A", "--all"},
                                           std::vector<std::string>{"info"},
                                           std::vector<std::string>{"map"}),
                         [](const auto& command) { return command.param[0]; });

TEST_P(FoldersOfHiddenEntries, ThatCannotBeRead_AreToldBesideTheRest) {
  TempFolder folder;
  ImageCrafter crafter = DiskOfOneFile();
  crafter.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 3}).FatWord(3, 3);
  WriteBytes(folder / "disk.img", crafter.Bytes());
  std::vector<std::string> arguments = GetParam();
  arguments.insert(arguments.begin() + 1, (folder / "disk.img").string());
  const ProgramRun run = RunVirtdisk(arguments);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: not all hidden entries could be read\n"));
  EXPECT_THAT(run.out, Not(IsEmpty()));
}

// Cuts a file off when it is first written to.
class CuttingStream : public std::streambuf {
 public:
  CuttingStream(std::filesystem::path cutFile, std::uintmax_t restBytes)
      : file(std::move(cutFile)), rest(restBytes) {}

 protected:
  std::streamsize xsputn(const char* /*text*/, std::streamsize count) override {
    std::filesystem::resize_file(file, rest);
    return count;
  }
  int overflow(int c) override { return c; }

 private:
  std::filesystem::path file;
  std::uintmax_t rest;
};

TEST(ShrinkingImage, Cat_IsToldByAMessage) {
  TempFolder folder;
  // 1 MiB in clusters of 64 KiB, which is read in more than one piece.
  ImageCrafter crafter({.sectorsPerCluster = 128, .clusters = 20});
  crafter.File("A.BIN", {.firstCluster = 2, .size = 1048576});
  crafter.Chain({2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17});
  WriteBytes(folder / "disk.img", crafter.Bytes());

  CuttingStream cutting(folder / "disk.img", 4096);
  std::ostream out(&cutting);
  std::ostringstream err;
  tool::Console console{out, err};
  const int status = tool::RunProgram(console, {"cat", (folder / "disk.img").string(), "/A.BIN"});
  EXPECT_EQ(status, 1);
  EXPECT_EQ(err.str(),
            "virtdisk: image could not be read: it is shorter than it was\n  /A.BIN in " +
                (folder / "disk.img").string() + " could not be read whole.\n");
}

TEST(CatCommandOnAShortFile, GivesWhatThereIsAndFails) {
  TempFolder folder;
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 513}).Chain({2}).Fill(2, 'a');
  WriteBytes(folder / "disk.img", crafter.Bytes());
  const ProgramRun run = RunVirtdisk({"cat", (folder / "disk.img").string(), "/A.TXT"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, std::string(512, 'a'));
  EXPECT_EQ(run.err,
            "virtdisk: /A.TXT has only 512 of its 513 bytes\n"
            "  Its chain of clusters ends early; `virtdisk verify` tells more.\n");
  const ProgramRun json = RunVirtdisk({"cat", (folder / "disk.img").string(), "/A.TXT", "--json"});
  EXPECT_EQ(json.status, 1);
  EXPECT_EQ(json.Json()["bytes"], 512);
  EXPECT_EQ(json.Json()["error"], "/A.TXT has only 512 of its 513 bytes");
}

// /SUB begins beyond the volume.
std::vector<std::uint8_t> DiskWithABrokenDirectory() {
  ImageCrafter crafter;
  crafter.Directory("SUB", 9000).File("A.TXT", {.firstCluster = 2, .size = 3});
  return crafter.Chain({2}).Data(2, "aaa").Bytes();
}

TEST(BrokenDirectory, OtherFilesAreRead) {
  TempFolder folder;
  const std::string image = (folder / "disk.img").string();
  WriteBytes(image, DiskWithABrokenDirectory());
  const ProgramRun cat = RunVirtdisk({"cat", image, "A.TXT"});
  EXPECT_EQ(cat.out, "aaa");
  const ProgramRun list = RunVirtdisk({"ls", image, "-R"});
  EXPECT_EQ(list.out, "/SUB/\n/A.TXT\n");
  const ProgramRun get = RunVirtdisk({"get", image, "/", (folder / "GOT").string()});
  EXPECT_EQ(folder.Read("GOT/A.TXT"), "aaa");
  for (const ProgramRun& run : {cat, list, get}) {
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "virtdisk: /SUB in " + image +
                           " cannot be read\n  Nothing is known of what is in there; `virtdisk "
                           "verify` tells more.\n");
  }
}

TEST(BrokenDirectory, JsonTellsOfItToo) {
  TempFolder folder;
  const std::string image = (folder / "disk.img").string();
  WriteBytes(image, DiskWithABrokenDirectory());
  const std::string error = "/SUB in " + image + " cannot be read";
  for (const char* command : {"info", "map"}) {
    EXPECT_EQ(RunVirtdisk({command, image, "--json"}).Json()["error"], error) << command;
  }
  for (const char* command : {"ls", "tree"}) {
    const auto lines = RunVirtdisk({command, image, "--json"}).JsonLines();
    EXPECT_EQ(lines.front()["path"], "/SUB") << command;
    EXPECT_EQ(lines.back()["error"], error) << command;
  }
}

TEST(BrokenDirectory, NothingIsWrittenBeside) {
  TempFolder folder;
  const std::string image = (folder / "disk.img").string();
  WriteBytes(image, DiskWithABrokenDirectory());
  folder.File("new", "new");
  const ProgramRun put = RunVirtdisk({"put", image, "A.TXT", (folder / "new").string()});
  EXPECT_EQ(put.status, 1);
  EXPECT_THAT(put.err, HasSubstr("is damaged; `virtdisk verify` tells more."));
  EXPECT_EQ(test::ReadBytes(image), DiskWithABrokenDirectory());
}

// Each directory holds the next one: all their paths together would take 300 MiB.
TEST(EndlessPaths, AreRefusedByAllThatLists) {
  constexpr std::uint16_t kDepth = 7000;
  TempFolder folder;
  const std::string image = (folder / "disk.img").string();
  ImageCrafter crafter({.sectorsPerFat = 28, .clusters = kDepth});
  for (std::uint16_t cluster = 2; cluster < kDepth; ++cluster) {
    crafter.Directory("DIRECTOR.EEE", cluster).Chain({cluster}).InCluster(cluster);
  }
  WriteBytes(image, crafter.Bytes());
  for (const char* command : {"ls", "info", "tree", "map"}) {
    const ProgramRun run = RunVirtdisk({command, image});
    EXPECT_EQ(run.status, 1) << command;
    EXPECT_THAT(run.err, HasSubstr("are nested too deep to be listed")) << command;
  }
  EXPECT_THAT(RunVirtdisk({"verify", image}).err, IsEmpty());
}

// As above, with names that no listing shows: 5 bytes of a path each, and as many MiB.
TEST(EndlessPaths, OfHiddenDirectories_AreRefusedByAllThatWouldListThem) {
  constexpr std::uint16_t kDepth = 11'000;
  TempFolder folder;
  const std::string image = (folder / "disk.img").string();
  ImageCrafter crafter({.sectorsPerFat = 44, .clusters = kDepth});
  for (std::uint16_t cluster = 2; cluster < kDepth; ++cluster) {
    crafter.RawSlot("        ABC", {.attributes = 0x10, .firstCluster = cluster});
    crafter.Chain({cluster}).InCluster(cluster);
  }
  WriteBytes(image, crafter.Bytes());
  const std::string dest = (folder / "DEST").string();
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"info", image},
                                             {"map", image},
                                             {"ls", image, "--all"},
                                             {"tree", image, "--all"},
                                             {"find", image, "A", "--all"},
                                             {"get", image, "/", dest, "--all"}}) {
    const ProgramRun run = RunVirtdisk(arguments);
    EXPECT_EQ(run.status, 1) << arguments[0];
    EXPECT_THAT(run.err, HasSubstr("are nested too deep to be listed")) << arguments[0];
  }
  EXPECT_EQ(RunVirtdisk({"ls", image}).status, 0);
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"cat", image, "/NOPE"}, {"get", image, "/NOPE", dest}}) {
    EXPECT_EQ(RunVirtdisk(arguments).err,
              "virtdisk: file not found\n  /NOPE in " + image +
                  ": `virtdisk find` and `virtdisk ls` show what there is.\n");
  }
}

// 150 MiB of paths that listings show, and as many of files in the last directory that they do not.
TEST(EndlessPaths, OfHiddenFilesInADeepDirectory_AreRefusedToo) {
  constexpr std::uint16_t kDepth = 5'000;
  constexpr std::uint16_t kClusters = kDepth + 200;
  TempFolder folder;
  const std::string image = (folder / "disk.img").string();
  ImageCrafter crafter({.sectorsPerFat = 21, .clusters = kClusters});
  for (std::uint16_t cluster = 2; cluster < kDepth; ++cluster) {
    crafter.Directory("DIRECTOR.EEE", cluster).Chain({cluster}).InCluster(cluster);
  }
  std::vector<std::uint16_t> last(200);
  std::iota(last.begin(), last.end(), kDepth);
  crafter.Directory("DIRECTOR.EEE", kDepth).Chain(last).InCluster(kDepth);
  for (int i = 0; i < 200 * 16; ++i) crafter.RawSlot("        ABC", {});
  WriteBytes(image, crafter.Bytes());
  const ProgramRun run = RunVirtdisk({"info", image});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("are nested too deep to be listed"));
}

// A volume of 2,047 MiB in 65,500 clusters, most of it a hole in the file.
void WriteLargeDisk(const std::filesystem::path& path) {
  ImageCrafter crafter({.sectorsPerCluster = 64, .sectorsPerFat = 256, .clusters = 20});
  crafter.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "aaa");
  const std::uint32_t sectors = 513 + 1 + 65500 * 64;
  crafter.U16(512 + 19, 0).U32(512 + 32, sectors).U32(446 + 12, sectors);
  WriteBytes(path, crafter.Bytes());
  std::filesystem::resize_file(path, (std::uintmax_t{1} + sectors) * 512);
}

TEST(LargeImage, EveryReadingCommand_RunsInMemoryOfAFewMiB) {
  if (kInstrumented) GTEST_SKIP() << "sanitizers keep memory of their own";
  TempFolder folder;
  WriteLargeDisk(folder / "disk.img");
  const std::string disk = (folder / "disk.img").string();
  const std::string dest = (folder / "DEST").string();
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"ls", disk, "-R", "--all"},
                                             {"find", disk, "a"},
                                             {"tree", disk},
                                             {"info", disk},
                                             {"map", disk},
                                             {"cat", disk, "/A.TXT"},
                                             {"get", disk, "/", dest},
                                             {"verify", disk}}) {
    const int status = RunInChild({.addressSpaceLimit = 512u << 20},
                                  [&] { return RunVirtdisk(arguments).status; });
    EXPECT_EQ(status, 0) << arguments[0];
  }
}

// Its JSON is four thirds of it.
TEST(LargeImage, ContentAsJson_IsNeverHeldWhole) {
  if (kInstrumented) GTEST_SKIP() << "sanitizers keep memory of their own";
  TempFolder folder;
  ImageCrafter crafter({.sectorsPerCluster = 64, .sectorsPerFat = 256, .clusters = 20});
  constexpr std::uint32_t kClusters = 1792;  // of 32 KiB
  std::vector<std::uint16_t> chain(kClusters);
  std::iota(chain.begin(), chain.end(), std::uint16_t{2});
  crafter.File("HOLE.BIN", {.firstCluster = 2, .size = kClusters * 32768}).Chain(chain);
  const std::uint32_t sectors = 513 + 1 + 65500 * 64;
  crafter.U16(512 + 19, 0).U32(512 + 32, sectors).U32(446 + 12, sectors);
  WriteBytes(folder / "disk.img", crafter.Bytes());
  std::filesystem::resize_file(folder / "disk.img", (std::uintmax_t{1} + sectors) * 512);
  const int status = RunInChild({.addressSpaceLimit = 200u << 20}, [&] {
    std::ostream nowhere(nullptr);
    nowhere.clear();
    struct Counting : std::streambuf {
      std::uint64_t bytes = 0;
      std::streamsize xsputn(const char*, std::streamsize count) override {
        bytes += static_cast<std::uint64_t>(count);
        return count;
      }
      int_type overflow(int_type c) override {
        ++bytes;
        return traits_type::not_eof(c);
      }
    } counting;
    nowhere.rdbuf(&counting);
    std::ostringstream err;
    tool::Console console{.out = nowhere, .err = err};
    const int ended =
        tool::RunProgram(console, {"cat", (folder / "disk.img").string(), "HOLE.BIN", "--json"});
    return ended == 0 && counting.bytes > kClusters * 32768 / 3 * 4 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace quorbix::virtdisk::test
