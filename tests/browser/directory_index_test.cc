// The walk: which directories are entered, in which order, where each one ends, and what refuses
// the whole load.

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

TEST(DirectoryIndex, EmptyRoot_IsAnEmptyIndex) {
  const auto browser = Load(ImageCrafter());

  EXPECT_TRUE(AllPaths(*browser).empty());
  EXPECT_TRUE(ListPaths(*browser, "/").empty());
}

TEST(DirectoryIndex, Root_EndsAtTheFirstUnusedSlot) {
  auto image = ImageCrafter().File("A.TXT").EndSlot().File("HIDDEN.TXT");

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/A.TXT"));
}

TEST(DirectoryIndex, RootOfSeveralSectors_EndsAtTheFirstUnusedSlot) {
  auto image = ImageCrafter({.rootEntryCount = 32}).File("A.TXT");
  for (int i = 1; i < 16; ++i) image.EndSlot();
  image.File("SECOND.TXT");

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/A.TXT"));
}

TEST(DirectoryIndex, FullRoot_IsReadToItsLastSlot) {
  auto image = ImageCrafter();
  for (char c = 'A'; c < 'A' + 16; ++c) image.File(std::string(1, c));
  image.InCluster(2).File("DATA");  // right after the root

  EXPECT_THAT(AllPaths(*Load(image)), testing::SizeIs(16));
}

TEST(DirectoryIndex, RootCountThatEndsInsideASector_IsReadToTheSectorsEnd) {
  auto image = ImageCrafter({.rootEntryCount = 1}).File("A").File("B");

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/A", "/B"));
}

TEST(DirectoryIndex, RootThatEndsWithTheImage_IsRead) {
  const auto crafter = ImageCrafter().File("A.TXT");

  EXPECT_THAT(AllPaths(*Load(ImageCrafter(crafter).CutTo(crafter.ClusterOffset(2)))),
              testing::ElementsAre("/A.TXT"));
}

TEST(DirectoryIndex, RootThatEndsBeyondTheImage_IsRefused) {
  auto image = ImageCrafter().File("A.TXT");
  image.CutTo(image.ClusterOffset(2) - 1);
  Fat16FsImage browser;

  EXPECT_EQ(LoadMessage(browser, image.Bytes()), "directory block out of range");
  EXPECT_TRUE(AllPaths(browser).empty());
}

TEST(DirectoryIndex, RootFarBeyondTheImage_IsRefused) {
  EXPECT_EQ(LoadMessage(ImageCrafter().U16(512 + 22, 0xFFFF).Bytes()),
            "directory block out of range");
}

TEST(DirectoryIndex, Subdirectories_AreWalkedDeep) {
  auto image = ImageCrafter().Directory("A", 2);
  image.InCluster(2).DotEntries(2, 0).Directory("B", 3).File("ONE.TXT");
  image.InCluster(3).DotEntries(3, 2).File("TWO.TXT");

  const auto browser = Load(image);

  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/A", "/A/B", "/A/B/TWO.TXT", "/A/ONE.TXT"));
  EXPECT_EQ(EntryAt(*browser, "/A/B/TWO.TXT").name, "TWO.TXT");
}

TEST(DirectoryIndex, Walk_GoesIntoADirectoryBeforeTheNextSlot) {
  // Each label fills the volume's label only when it is the first one met.
  auto image = ImageCrafter().Directory("A", 2).Directory("B", 3);
  image.InCluster(2).Directory("DEEP", 4);
  image.InCluster(4).Label("DEEP       ");
  image.InCluster(3).Label("LATER      ");

  EXPECT_EQ(Load(image)->Info().volumeLabel, "DEEP");
}

TEST(DirectoryIndex, UnusedSlotInASubdirectory_DeliberatelyEndsOnlyTheCluster) {
  auto image = ImageCrafter().Directory("SUB", 2).Chain({2, 7});
  image.InCluster(2).DotEntries(2, 0).File("FIRST.TXT");
  for (int i = 3; i < 16; ++i) image.EndSlot();
  image.File("SECOND.TXT");

  EXPECT_THAT(ListPaths(*Load(image), "/SUB"),
              testing::ElementsAre("/SUB/FIRST.TXT", "/SUB/SECOND.TXT"));
}

TEST(DirectoryIndex, SlotsAfterTheUnusedOneInTheSameCluster_AreNotRead) {
  auto image = ImageCrafter().Directory("SUB", 2).Chain({2, 7});
  image.InCluster(2).File("FIRST.TXT").EndSlot().File("HIDDEN.TXT");
  image.InCluster(7).File("SECOND.TXT");

  EXPECT_THAT(ListPaths(*Load(image), "/SUB"),
              testing::ElementsAre("/SUB/FIRST.TXT", "/SUB/SECOND.TXT"));
}

TEST(DirectoryIndex, SubdirectoryOfSeveralClusters_IsReadAlongItsChain) {
  auto image = ImageCrafter({.sectorsPerCluster = 2}).Directory("SUB", 9).Chain({9, 4, 6});
  image.InCluster(9).DotEntries(9, 0);
  for (int i = 0; i < 70; ++i) image.File("F" + std::to_string(i));

  EXPECT_THAT(ListPaths(*Load(image), "/SUB"), testing::SizeIs(70));
}

TEST(DirectoryIndex, DeletedAndLongNameSlotsInASubdirectory_AreSkipped) {
  auto image = ImageCrafter().Directory("SUB", 2);
  image.InCluster(2).DeletedSlot().LongNameSlot().File("A.TXT");

  EXPECT_THAT(ListPaths(*Load(image), "/SUB"), testing::ElementsAre("/SUB/A.TXT"));
}

TEST(DirectoryIndex, DirectoryReachedTwice_IsWalkedOnce) {
  auto image = ImageCrafter().Directory("ONE", 2).Directory("TWO", 2);
  image.InCluster(2).File("A.TXT");

  const auto browser = Load(image);

  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/ONE", "/ONE/A.TXT", "/TWO"));
  EXPECT_TRUE(EntryAt(*browser, "/TWO").isDirectory);
  EXPECT_TRUE(ListPaths(*browser, "/TWO").empty());
}

TEST(DirectoryIndex, DirectoryInsideItself_IsNotEnteredAgain) {
  auto image = ImageCrafter().Directory("SELF", 2);
  image.InCluster(2).Directory("SELF", 2).File("A.TXT");

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/SELF", "/SELF/A.TXT", "/SELF/SELF"));
}

TEST(DirectoryIndex, DirectoryWithFirstClusterZero_IsEmpty) {
  auto image = ImageCrafter().Directory("ZERO", 0).File("A.TXT");

  const auto browser = Load(image);

  EXPECT_TRUE(EntryAt(*browser, "/ZERO").isDirectory);
  EXPECT_TRUE(ListPaths(*browser, "/ZERO").empty());
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/A.TXT", "/ZERO"));
}

TEST(DirectoryIndex, DirectoryThatStartsAtAnEndMarkOrAtOne_IsEmpty) {
  for (const std::uint16_t start : Words{0x0001, 0xFFF8, 0xFFFF}) {
    const auto browser = Load(ImageCrafter().Directory("D", start));

    EXPECT_TRUE(ListPaths(*browser, "/D").empty()) << start;
  }
}

TEST(DirectoryIndex, DirectoryWithALoopingChain_RefusesTheLoad) {
  EXPECT_EQ(LoadMessage(ImageCrafter().Directory("D", 2).FatWord(2, 2).Bytes()),
            "cluster loop detected");
  EXPECT_EQ(LoadMessage(ImageCrafter().Directory("D", 2).Chain({2, 3, 4}).FatWord(4, 3).Bytes()),
            "cluster loop detected");
}

TEST(DirectoryIndex, DirectoryThatLeavesTheImage_RefusesTheLoad) {
  // The default volume has the clusters 2 to 91.
  EXPECT_EQ(LoadMessage(ImageCrafter().Directory("D", 92).Bytes()), "cluster offset out of range");
  EXPECT_EQ(LoadMessage(ImageCrafter().Directory("D", 2).FatWord(2, 92).Bytes()),
            "cluster offset out of range");
}

TEST(DirectoryIndex, DirectoryInTheLastCluster_IsRead) {
  auto image = ImageCrafter().Directory("D", 91).InCluster(91).File("A.TXT");

  EXPECT_THAT(ListPaths(*Load(image), "/D"), testing::ElementsAre("/D/A.TXT"));
}

TEST(DirectoryIndex, BrokenDirectoryDeepInTheTree_RefusesTheLoadWithItsMessage) {
  auto image = ImageCrafter().Directory("A", 2).File("LATER.TXT");
  image.InCluster(2).File("FOUND.TXT").Directory("B", 3).File("MISSED.TXT");
  image.InCluster(3).Directory("BAD", 0xFFF7);
  Fat16FsImage browser;

  EXPECT_EQ(LoadMessage(browser, image.Bytes()), "cluster offset out of range");
  EXPECT_THAT(AllPaths(browser), testing::ElementsAre("/A", "/A/B", "/A/B/BAD", "/A/FOUND.TXT"));
  EXPECT_TRUE(ListPaths(browser, "/A/B/BAD").empty());
}

TEST(DirectoryIndex, BrokenFileChain_DoesNotRefuseTheLoad) {
  auto image = ImageCrafter().File("LOOP", {.firstCluster = 2, .size = 5}).FatWord(2, 2);
  image.File("FAR", {.firstCluster = 5000, .size = 5}).File("LAST");

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/FAR", "/LAST", "/LOOP"));
}

TEST(DirectoryIndex, SecondLoad_GivesTheSameIndex) {
  auto image = ImageCrafter().Directory("A", 2).File("B").File("B").File("C");
  image.InCluster(2).Directory("A", 2).File("b");
  const auto browser = Load(image);
  const Names first = AllPaths(*browser);

  EXPECT_EQ(LoadMessage(*browser, image.Bytes()), "");

  EXPECT_EQ(AllPaths(*browser), first);
}

TEST(DirectoryIndex, Separators_InANameCountInTheKeyButNotInThePath) {
  auto image = ImageCrafter().Directory("A", 2).File("A/B", {.firstCluster = 3, .size = 1});
  image.Directory("C\\D/", 4).Fill(3, 'x');
  image.InCluster(2);
  image.InCluster(4).File("E.TXT");

  const auto browser = Load(image);

  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/A", "/A/B", "/C\\D/", "/C\\D//E.TXT"));
  EXPECT_EQ(ReadText(*browser, "\\a\\b"), "x");
  EXPECT_THAT(ListPaths(*browser, "/A"), testing::IsEmpty());  // A/B is a child of the root
  EXPECT_THAT(ListPaths(*browser, "c/d"), testing::ElementsAre("/C\\D//E.TXT"));
  EXPECT_EQ(ReadMessage(*browser, "/c/d/e.txt"), "");
  EXPECT_EQ(ListMessage(*browser, "/C"), "directory not found");
}

TEST(DirectoryIndex, NameOfSeparatorsOnly_HasTheKeyOfItsDirectory) {
  auto image = ImageCrafter().Directory("D", 2).Directory("/", 3);
  image.InCluster(2).File("\\", {.firstCluster = 5, .size = 1}).Fill(5, 'y');
  image.InCluster(3).File("A.TXT");

  const auto browser = Load(image);

  EXPECT_THAT(ListPaths(*browser, "/"), testing::ElementsAre("//", "/D", "///A.TXT"));
  EXPECT_EQ(ReadMessage(*browser, "/"), "path is a directory");
  EXPECT_EQ(ReadMessage(*browser, "/D"), "path is a directory");  // the first record of that key
  EXPECT_EQ(ReadMessage(*browser, "/a.txt"), "");
}

}  // namespace
}  // namespace quorbix::virtdisk::test
