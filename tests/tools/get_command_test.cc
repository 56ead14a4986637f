#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "program_run.h"
#include "small_disk.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::ImageCrafter;
using test::ProgramRun;
using test::RunVirtdisk;
using test::SmallDisk;
using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

class GetCommand : public ::testing::Test {
 protected:
  ProgramRun Get(const ImageCrafter& crafter, const std::string& path,
                 const std::vector<std::string>& options = {}) {
    test::WriteBytes(folder / "disk.img", crafter.Bytes());
    std::vector<std::string> arguments{"get", (folder / "disk.img").string(), path,
                                       (folder / "DEST").string()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return RunVirtdisk(arguments);
  }

  TempFolder folder;
};

TEST_F(GetCommand, Root_IsCopiedWhole) {
  EXPECT_EQ(Get(SmallDisk(), "/").status, 0);
  EXPECT_THAT(folder.Files("DEST"), ElementsAre(Pair("A.TXT", "aaa"), Pair("SUB/B.TXT", "bbb"),
                                                Pair("SUB/IN/EMPTY", "")));
}

TEST_F(GetCommand, Directory_GivesItsContentToTheDestination) {
  EXPECT_EQ(Get(SmallDisk(), "sub").status, 0);
  EXPECT_THAT(folder.Files("DEST"), ElementsAre(Pair("B.TXT", "bbb"), Pair("IN/EMPTY", "")));
}

TEST_F(GetCommand, FileOntoTheImageItself_IsRefused) {
  const std::string disk = (folder / "disk.img").string();
  test::WriteBytes(disk, SmallDisk().Bytes());
  folder.Link("link.img", "disk.img");
  for (const char* destination : {"disk.img", "link.img"}) {
    const ProgramRun run = RunVirtdisk({"get", disk, "A.TXT", (folder / destination).string()});
    EXPECT_EQ(run.status, 3) << destination;
    EXPECT_THAT(run.err, HasSubstr("would take the image's place"));
  }
  EXPECT_EQ(test::ReadBytes(disk), SmallDisk().Bytes());
}

TEST_F(GetCommand, TreeThatHoldsTheImagesName_LeavesTheImageAlone) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "aaa");
  crafter.File("DISK.IMG", {.firstCluster = 3, .size = 3}).Chain({3}).Data(3, "bad");
  const std::string disk = (folder / "DISK.IMG").string();
  test::WriteBytes(disk, crafter.Bytes());
  EXPECT_EQ(RunVirtdisk({"get", disk, "/", folder.Path().string()}).status, 1);
  EXPECT_EQ(test::ReadBytes(disk), crafter.Bytes());
  EXPECT_EQ(folder.Read("A.TXT"), "aaa");
}

TEST_F(GetCommand, PictureOntoTheImageItself_IsRefused) {
  const std::string disk = (folder / "disk.svg").string();
  test::WriteBytes(disk, SmallDisk().Bytes());
  EXPECT_EQ(RunVirtdisk({"map", disk, "-o", disk, "--force"}).status, 3);
  EXPECT_EQ(test::ReadBytes(disk), SmallDisk().Bytes());
}

TEST_F(GetCommand, StandardOutput_IsLeftToCat) {
  test::WriteBytes(folder / "disk.img", SmallDisk().Bytes());
  const ProgramRun run = RunVirtdisk({"get", (folder / "disk.img").string(), "/A.TXT", "-"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("`virtdisk cat IMAGE PATH` does"));
  EXPECT_FALSE(fs::exists("-"));
}

TEST_F(GetCommand, FileToANewName_IsCopied) {
  EXPECT_EQ(Get(SmallDisk(), "/sub/b.txt").status, 0);
  EXPECT_EQ(folder.Read("DEST"), "bbb");
}

TEST_F(GetCommand, FileToAFolder_KeepsItsName) {
  folder.Folder("DEST");
  EXPECT_EQ(Get(SmallDisk(), "/sub/b.txt").status, 0);
  EXPECT_EQ(folder.Read("DEST/B.TXT"), "bbb");
}

TEST_F(GetCommand, FilesThatExist_AreLeftAlone) {
  folder.File("DEST/A.TXT", "old");
  const ProgramRun run = Get(SmallDisk(), "/");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(folder.Read("DEST/A.TXT"), "old");
  EXPECT_EQ(folder.Read("DEST/SUB/B.TXT"), "bbb");
  EXPECT_THAT(run.err, HasSubstr("virtdisk: refused to extract /A.TXT: a file of that name exists\n"
                                 "  --force replaces it.\n"));
}

TEST_F(GetCommand, FilesThatExistUnderForce_AreReplaced) {
  folder.File("DEST/A.TXT", "old").File("DEST/OTHER", "kept");
  EXPECT_EQ(Get(SmallDisk(), "/", {"--force"}).status, 0);
  EXPECT_EQ(folder.Read("DEST/A.TXT"), "aaa");
  EXPECT_EQ(folder.Read("DEST/OTHER"), "kept");
}

TEST_F(GetCommand, OneFileThatExists_IsRefusedWithItsOwnStatus) {
  folder.File("DEST", "old");
  const ProgramRun run = Get(SmallDisk(), "/A.TXT");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(folder.Read("DEST"), "old");
  EXPECT_THAT(run.err, HasSubstr("DEST exists\n  --force replaces it; nothing was written.\n"));
  EXPECT_EQ(Get(SmallDisk(), "/A.TXT", {"--force"}).status, 0);
  EXPECT_EQ(folder.Read("DEST"), "aaa");
}

TEST_F(GetCommand, ManyFilesThatExist_AreToldTenTimesAndCounted) {
  ImageCrafter crafter;
  for (int i = 0; i < 13; ++i) {
    crafter.File("N" + std::to_string(i));
    folder.File("DEST/N" + std::to_string(i), "");
  }
  const ProgramRun run = Get(crafter, "/");
  EXPECT_THAT(run.err, HasSubstr("refused to extract /N6: "));
  EXPECT_THAT(run.err, Not(HasSubstr("refused to extract /N7: ")));
  EXPECT_THAT(run.err, HasSubstr("refused to extract 3 more: a file of that name exists\n"
                                 "  --json names every one.\n"));
}

TEST_F(GetCommand, ManyFailuresOfEachSort_AreToldTenTimesAndCountedAndJsonHasAll) {
  ImageCrafter crafter({.rootEntryCount = 48});
  for (int i = 10; i < 21; ++i) {
    const std::string number = std::to_string(i);
    crafter.File("SHORT" + number, {.size = 9}).File("NONE" + number, {.firstCluster = 400});
    crafter.RawSlot("A/" + number + "       ", {});
  }
  const ProgramRun run = Get(crafter, "/", {"--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 3 * (10 + 1) * 2) << run.err;
  EXPECT_THAT(run.err, HasSubstr("virtdisk: could not read 1 more: cluster offset out of range\n"));
  EXPECT_THAT(run.err, HasSubstr("virtdisk: only a part is there of 1 more: their chains of "
                                 "clusters end early\n"));
  EXPECT_THAT(run.err, HasSubstr("virtdisk: refused to extract 1 more: its name would lead out of "
                                 "the destination\n"));
  EXPECT_EQ(run.Json()["short"].size(), 11u);
  EXPECT_EQ(run.Json()["failed"].size(), 22u);
}

TEST_F(GetCommand, FailuresOfTen_AreToldWithoutARest) {
  ImageCrafter crafter;
  for (int i = 10; i < 20; ++i) crafter.File("SHORT" + std::to_string(i), {.size = 9});
  EXPECT_THAT(Get(crafter, "/").err, Not(HasSubstr("more: ")));
}

TEST_F(GetCommand, ManyFilesThatCannotBeWritten_AreToldTenTimesAndCountedByReason) {
  ImageCrafter crafter;
  for (std::uint16_t i = 0; i < 12; ++i) {
    const auto cluster = static_cast<std::uint16_t>(2 + 2 * i);
    crafter.File("N" + std::to_string(i), {.firstCluster = cluster, .size = 1024});
    crafter.Chain({cluster, static_cast<std::uint16_t>(cluster + 1)});
  }
  test::WriteBytes(folder / "disk.img", crafter.Bytes());
  test::RunInChild({.fileSizeLimit = 600}, [this] {
    ::signal(SIGXFSZ, SIG_IGN);
    const ProgramRun run =
        RunVirtdisk({"get", (folder / "disk.img").string(), "/", (folder / "DEST").string()});
    folder.File("log", run.err.substr(run.err.size() - 100));
    return 0;
  });
  EXPECT_THAT(folder.Read("log"), HasSubstr("virtdisk: could not write 2 more: File too large\n"
                                            "  --json names every one.\n"));
}

// 1,024 of 2,000 bytes have clusters.
ImageCrafter DiskWithAShortFile() {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 2000}).Chain({2, 3}).Fill(2, 'a').Fill(3, 'b');
  crafter.File("B.TXT", {.firstCluster = 4, .size = 3}).Chain({4}).Data(4, "bbb");
  return crafter;
}

TEST_F(GetCommand, ShortFile_ReplacesNoWholeOneEvenWhenForced) {
  folder.File("DEST", std::string(2000, 'g'));
  const ProgramRun run = Get(DiskWithAShortFile(), "/A.TXT", {"--force"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("/A.TXT has only 1,024 of its 2,000 bytes\n"));
  EXPECT_THAT(run.err, HasSubstr("what there is of it would replace "));
  EXPECT_EQ(folder.Read("DEST"), std::string(2000, 'g'));
}

TEST_F(GetCommand, Json_TellsWhyNothingCame) {
  const nlohmann::json none = Get(SmallDisk(), "/NONE", {"--json"}).Json();
  EXPECT_EQ(none["error"], "file not found");
  EXPECT_THAT(none["hint"].get<std::string>(), HasSubstr("virtdisk find"));
  EXPECT_EQ(Get(SmallDisk(), "/", {"--json"}).Json()["error"], nlohmann::json());
  const nlohmann::json again = Get(SmallDisk(), "/", {"--json"}).Json();
  EXPECT_EQ(again["failed"][0]["path"], "/SUB/IN/EMPTY");
  EXPECT_EQ(again["failed"][0]["reason"], "a file of that name exists");
}

TEST_F(GetCommand, FolderThatIsNotThere_IsToldAsThat) {
  test::WriteBytes(folder / "disk.img", SmallDisk().Bytes());
  const std::string target = (folder / "none/").string();
  const ProgramRun run = RunVirtdisk({"get", (folder / "disk.img").string(), "/A.TXT", target});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("there is no folder " + target + "\n"));
}

TEST_F(GetCommand, FolderWithoutRights_IsToldAsThat) {
  folder.Folder("DEST").Folder("CLOSED/DEST");
  fs::permissions(folder / "DEST", fs::perms{0555});
  fs::permissions(folder / "CLOSED", fs::perms{0700});
  test::WriteBytes(folder / "disk.img", SmallDisk().Bytes());
  fs::permissions(folder.Path(), fs::perms{0777});
  const auto errors = [&](const std::string& destination) {
    const fs::path log = folder / "log";
    test::RunInChild({.dropRoot = true}, [&] {
      test::WriteWholeFile(log, RunVirtdisk({"get", (folder / "disk.img").string(), "/",
                                             (folder / destination).string()})
                                    .err);
      return 0;
    });
    return folder.Read("log");
  };
  EXPECT_EQ(errors("DEST"),
            "virtdisk: refused to extract /SUB: Permission denied\n"
            "  What is not refused is extracted.\n"
            "virtdisk: refused to extract /SUB/IN: its folder could not be made\n"
            "  What is not refused is extracted.\n"
            "virtdisk: refused to extract /SUB/IN/EMPTY: its folder could not be made\n"
            "  What is not refused is extracted.\n"
            "virtdisk: refused to extract /SUB/B.TXT: its folder could not be made\n"
            "  What is not refused is extracted.\n"
            "virtdisk: cannot write " +
                (folder / "DEST/A.TXT").string() +
                ": Permission denied\n"
                "  Not copied: /A.TXT\n");
  folder.Remove("log");
  EXPECT_THAT(errors("CLOSED/DEST"),
              HasSubstr("virtdisk: cannot make the folder " + (folder / "CLOSED/DEST").string() +
                        ": Permission denied\n"));
}

TEST_F(GetCommand, ShortFile_IsToldAndTheRestIsExtracted) {
  const ProgramRun run = Get(DiskWithAShortFile(), "/", {"--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: /A.TXT has only 1,024 of its 2,000 bytes\n"));
  EXPECT_EQ(folder.Read("DEST/A.TXT"), std::string(512, 'a') + std::string(512, 'b'));
  EXPECT_EQ(folder.Read("DEST/B.TXT"), "bbb");
  EXPECT_EQ(run.Json()["short"], nlohmann::json({"/A.TXT"}));
  EXPECT_EQ(run.Json()["files"], 2);
  EXPECT_EQ(run.Json()["bytes"], 1027);
}

TEST_F(GetCommand, FileThatCannotBeRead_LeavesNothingBehind) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 2000}).FatWord(2, 2);
  folder.File("DEST/OLD", "");
  EXPECT_EQ(Get(crafter, "/").status, 1);
  EXPECT_THAT(folder.Files("DEST"), ElementsAre(Pair("OLD", "")));
}

TEST_F(GetCommand, FileThatCannotBeReadUnderForce_LeavesTheOldOne) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 2000}).FatWord(2, 2);
  folder.File("DEST/A.TXT", "old");
  EXPECT_EQ(Get(crafter, "/", {"--force"}).status, 1);
  EXPECT_THAT(folder.Files("DEST"), ElementsAre(Pair("A.TXT", "old")));
}

TEST_F(GetCommand, FileBeyondTheLimit_IsToldAndGone) {
  test::WriteBytes(
      folder / "disk.img",
      ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 1024}).Chain({2, 3}).Bytes());
  const int status = test::RunInChild({.fileSizeLimit = 600}, [this] {
    ::signal(SIGXFSZ, SIG_IGN);
    return RunVirtdisk({"get", (folder / "disk.img").string(), "/", (folder / "DEST").string()})
        .status;
  });
  EXPECT_EQ(status, 1);
  EXPECT_THAT(folder.Files("DEST"), IsEmpty());
}

TEST_F(GetCommand, FileWithAFreeFirstCluster_IsShort) {
  const ProgramRun run = Get(ImageCrafter().File("A.TXT", {.size = 9}), "/A.TXT");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("/A.TXT has only 0 of its 9 bytes\n"));
}

ImageCrafter DiskWithHiddenEntries() {
  ImageCrafter crafter;
  crafter.RawSlot("        PRO", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "pro");
  crafter.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 3}).Chain({3});
  crafter.File("A.TXT", {.firstCluster = 4, .size = 3}).Chain({4}).Data(4, "aaa");
  crafter.InCluster(3).DotEntries(3, 0).File("HEAD", {.firstCluster = 5, .size = 4});
  crafter.Chain({5}).Data(5, "head");
  return crafter;
}

TEST_F(GetCommand, HiddenEntries_AreExtractedUnderAllOnly) {
  EXPECT_EQ(Get(DiskWithHiddenEntries(), "/").status, 0);
  EXPECT_THAT(folder.Files("DEST"), ElementsAre(Pair("A.TXT", "aaa")));
  fs::remove_all(folder / "DEST");
  EXPECT_EQ(Get(DiskWithHiddenEntries(), "/", {"--all"}).status, 0);
  EXPECT_THAT(folder.Files("DEST"),
              ElementsAre(Pair(".GIT/HEAD", "head"), Pair(".PRO", "pro"), Pair("A.TXT", "aaa")));
}

TEST_F(GetCommand, OneHiddenFile_IsFoundUnderAllOnly) {
  EXPECT_EQ(Get(DiskWithHiddenEntries(), "/.PRO").status, 1);
  EXPECT_EQ(Get(DiskWithHiddenEntries(), "/.pro", {"--all"}).status, 0);
  EXPECT_EQ(folder.Read("DEST"), "pro");
}

// Two entries of one name: each would be read by its own cluster, and only the first is extracted.
TEST_F(GetCommand, EntryShadowedByAnother_IsNotTheContentOfTheFirst) {
  ImageCrafter crafter;
  crafter.File("a.txt", {.firstCluster = 2, .size = 1}).Chain({2}).Data(2, "1");
  crafter.File("A.TXT", {.firstCluster = 3, .size = 1}).Chain({3}).Data(3, "2");
  EXPECT_EQ(Get(crafter, "/").status, 1);
  EXPECT_THAT(folder.Files("DEST"), ElementsAre(Pair("A.TXT", "2")));
}

TEST_F(GetCommand, MissingPath_FailsAndMakesNothing) {
  const ProgramRun run = Get(SmallDisk(), "/NOPE");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: file not found\n"));
  EXPECT_FALSE(folder.Exists("DEST"));
}

TEST_F(GetCommand, NamesThatLeadOut_AreRefusedAndTheRestIsExtracted) {
  ImageCrafter crafter;
  for (const char* name : {"../../X    ", "/etc/x     ", "A/B     TXT", "..      /X "}) {
    crafter.RawSlot(name, {.firstCluster = 2, .size = 3});
  }
  crafter.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "aaa");
  const ProgramRun run = Get(crafter, "/");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(folder.Files("."),
              ElementsAre(Pair("DEST/A.TXT", "aaa"), Pair("disk.img", ::testing::_)));
  EXPECT_THAT(run.err, HasSubstr("virtdisk: refused to extract /../../X: its name would lead out"));
}

TEST_F(GetCommand, NameWithANulInItsExtension_IsCutBeforeIt) {
  ImageCrafter crafter;
  crafter.RawSlot(std::string_view("A       T\0X", 11), {.firstCluster = 2, .size = 3});
  crafter.Chain({2}).Data(2, "aaa");
  EXPECT_EQ(Get(crafter, "/").status, 0);
  EXPECT_THAT(folder.Files("DEST"), ElementsAre(Pair("A.T", "aaa")));
}

TEST_F(GetCommand, DirectoryThatLeadsOut_TakesItsContentWithIt) {
  ImageCrafter crafter;
  crafter.RawSlot("../OUT     ", {.attributes = 0x10, .firstCluster = 3});
  crafter.Chain({3}).InCluster(3).File("B.TXT", {.firstCluster = 4, .size = 3});
  crafter.Chain({4}).Data(4, "bbb");
  folder.Folder("OUT");
  EXPECT_EQ(Get(crafter, "/").status, 1);
  EXPECT_THAT(folder.Files("OUT"), IsEmpty());
  EXPECT_THAT(folder.Files("DEST"), IsEmpty());
}

TEST_F(GetCommand, LinkInPlaceOfAFolder_IsNotFollowed) {
  folder.Folder("OUT/IN").Folder("DEST").Link("DEST/SUB", "../OUT");
  const ProgramRun run = Get(SmallDisk(), "/");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(folder.Files("OUT"), IsEmpty());
  EXPECT_EQ(folder.Read("DEST/A.TXT"), "aaa");
  EXPECT_THAT(run.err, HasSubstr("refused to extract /SUB/IN/EMPTY"));
}

TEST_F(GetCommand, LinkInPlaceOfAFile_IsNotFollowed) {
  folder.File("OUT.TXT", "kept").Folder("DEST").Link("DEST/A.TXT", "../OUT.TXT");
  EXPECT_EQ(Get(SmallDisk(), "/").status, 1);
  EXPECT_EQ(folder.Read("OUT.TXT"), "kept");
  EXPECT_EQ(Get(SmallDisk(), "/", {"--force"}).status, 0);
  EXPECT_EQ(folder.Read("OUT.TXT"), "kept");
  EXPECT_EQ(folder.Read("DEST/A.TXT"), "aaa");
}

TEST_F(GetCommand, DestinationThatIsALink_IsTaken) {
  folder.Folder("REAL").Link("DEST", "REAL");
  EXPECT_EQ(Get(SmallDisk(), "/").status, 0);
  EXPECT_EQ(folder.Read("REAL/SUB/B.TXT"), "bbb");
}

TEST_F(GetCommand, BrokenFile_FailsAndTheRestIsExtracted) {
  ImageCrafter crafter;
  crafter.File("LOOP.TXT", {.firstCluster = 2, .size = 2000}).FatWord(2, 2);
  crafter.File("Z.TXT", {.firstCluster = 3, .size = 3}).Chain({3}).Data(3, "zzz");
  const ProgramRun run = Get(crafter, "/");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cluster loop detected\n"));
  EXPECT_THAT(folder.Files("DEST"), ElementsAre(Pair("Z.TXT", "zzz")));
}

TEST_F(GetCommand, TwoFilesOfAName_GiveTheFirst) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2}).Data(2, "one");
  crafter.File("A.TXT", {.firstCluster = 3, .size = 3}).Chain({3}).Data(3, "two");
  const ProgramRun run = Get(crafter, "/");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(folder.Read("DEST/A.TXT"), "one");
  EXPECT_THAT(run.err, HasSubstr("another entry has the same name"));
}

TEST_F(GetCommand, DeviceAsTheNewFile_IsRefused) {
  test::WriteBytes(folder / "disk.img", SmallDisk().Bytes());
  for (const char* force : {"--quiet", "--force"}) {
    const ProgramRun run =
        RunVirtdisk({"get", (folder / "disk.img").string(), "/A.TXT", "/dev/null", force});
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, HasSubstr("/dev/null is no regular file"));
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
