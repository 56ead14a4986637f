#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

ImageCrafter OneFile(SlotFields fields) { return ImageCrafter().File("A.TXT", fields); }

TEST(FileRead, Content_StopsAtTheRecordedSize) {
  const auto image = OneFile({.firstCluster = 2, .size = 5}).Data(2, "hello, and more");

  EXPECT_EQ(ReadText(*Load(image), "/A.TXT"), "hello");
}

TEST(FileRead, ZeroSize_IsEmptyWithoutReadingTheChain) {
  const auto image = OneFile({.firstCluster = 2, .size = 0}).FatWord(2, 2);  // a loop

  EXPECT_EQ(ReadText(*Load(image), "/A.TXT"), "");
}

TEST(FileRead, SeveralClusters_AreJoinedInChainOrder) {
  const auto image = OneFile({.firstCluster = 7, .size = 1030})
                         .Chain({7, 3, 5})
                         .Fill(7, 'a')
                         .Fill(3, 'b')
                         .Data(5, "cccccc");

  EXPECT_EQ(ReadText(*Load(image), "/A.TXT"),
            std::string(512, 'a') + std::string(512, 'b') + "cccccc");
}

TEST(FileRead, SizeOfExactlyOneCluster_ReadsOne) {
  const auto image = OneFile({.firstCluster = 2, .size = 512}).Chain({2, 3}).Fill(2, 'a');

  EXPECT_EQ(ReadText(*Load(image), "/A.TXT"), std::string(512, 'a'));
}

TEST(FileRead, ChainShorterThanTheSize_GivesWhatThereIs) {
  const auto image = OneFile({.firstCluster = 2, .size = 5000}).Chain({2}).Fill(2, 'a');

  EXPECT_EQ(ReadText(*Load(image), "/A.TXT"), std::string(512, 'a'));
}

TEST(FileRead, SizeWithoutAnyCluster_ReadsAsEmpty) {
  EXPECT_EQ(ReadText(*Load(OneFile({.firstCluster = 0, .size = 5})), "/A.TXT"), "");
  EXPECT_EQ(ReadText(*Load(OneFile({.firstCluster = 1, .size = 5})), "/A.TXT"), "");
}

TEST(FileRead, HugeRecordedSize_IsBoundedByTheChain) {
  const auto image = OneFile({.firstCluster = 2, .size = 0xFFFFFFFF}).Chain({2, 3});

  EXPECT_EQ(ReadText(*Load(image), "/A.TXT").size(), 1024u);
}

TEST(FileRead, LoopingChain_FailsEvenWhenTheSizeEndsBeforeTheLoop) {
  const auto image = OneFile({.firstCluster = 2, .size = 5}).FatWord(2, 2);

  EXPECT_EQ(ReadMessage(*Load(image), "/A.TXT"), "cluster loop detected");
}

TEST(FileRead, ChainThatLeavesTheImage_Fails) {
  const auto image = OneFile({.firstCluster = 2, .size = 5}).FatWord(2, 5000);

  EXPECT_EQ(ReadMessage(*Load(image), "/A.TXT"), "cluster offset out of range");
}

TEST(FileRead, EveryWayToWriteAPath_ReadsTheSameFile) {
  auto image = ImageCrafter().Directory("DOCS", 2).InCluster(2).DotEntries(2, 0);
  image.File("README.TXT", {.firstCluster = 3, .size = 4}).Data(3, "text");
  const auto browser = Load(image);

  EXPECT_EQ(ReadText(*browser, "/DOCS/README.TXT"), "text");
  EXPECT_EQ(ReadText(*browser, "docs\\readme.txt"), "text");
  EXPECT_EQ(ReadText(*browser, "//Docs//ReadMe.Txt/"), "text");
}

TEST(FileRead, UnknownPath_IsNotFound) {
  const auto browser = Load(OneFile({}));

  EXPECT_EQ(ReadMessage(*browser, "/B.TXT"), "file not found");
  EXPECT_EQ(ReadMessage(*browser, "/A"), "file not found");
  EXPECT_EQ(ReadMessage(*browser, "/A.TXT/B"), "file not found");
  EXPECT_EQ(ReadMessage(*browser, "/A.TXTT"), "file not found");
  EXPECT_EQ(ReadMessage(*browser, std::string("/A.TXT\0", 7)), "file not found");
}

TEST(FileRead, NameLongerThanAnyShortName_IsNotCut) {
  const auto browser = Load(ImageCrafter().File("ABCDEFGH.IJK"));

  EXPECT_EQ(ReadMessage(*browser, "/ABCDEFGH.IJK"), "");
  EXPECT_EQ(ReadMessage(*browser, "/ABCDEFGH.IJKL"), "file not found");
}

TEST(FileRead, Root_IsNotFoundBecauseItHasNoRecord) {
  const auto browser = Load(OneFile({}));

  EXPECT_EQ(ReadMessage(*browser, "/"), "file not found");
  EXPECT_EQ(ReadMessage(*browser, ""), "file not found");
}

TEST(FileRead, Directory_IsRefused) {
  auto image = ImageCrafter().Directory("D", 2).InCluster(2);

  EXPECT_EQ(ReadMessage(*Load(image), "/D"), "path is a directory");
}

TEST(FileRead, DuplicateNames_MeanTheFirstOne) {
  auto image = ImageCrafter()
                   .File("A.TXT", {.firstCluster = 3, .size = 5})
                   .File("a.txt", {.firstCluster = 2, .size = 6})
                   .Data(3, "first")
                   .Data(2, "second");

  EXPECT_EQ(ReadText(*Load(image), "/a.txt"), "first");
}

TEST(FileRead, SameNameInDirectoriesOfOneKey_MeansTheFirstWalked) {
  auto image = ImageCrafter().Directory("D", 5).Directory("d", 2);
  image.InCluster(5).File("A", {.firstCluster = 6, .size = 5}).Data(6, "first");
  image.InCluster(2).File("A", {.firstCluster = 3, .size = 6}).Data(3, "second");

  EXPECT_EQ(ReadText(*Load(image), "/d/A"), "first");
}

TEST(FileRead, DirectoryBeforeAFileOfTheSameName_HidesIt) {
  auto image = ImageCrafter().Directory("A", 2).File("A", {.firstCluster = 3, .size = 1});
  image.InCluster(2).File("IN").Chain({2});
  const auto browser = Load(image);

  EXPECT_EQ(ReadMessage(*browser, "/A"), "path is a directory");
  EXPECT_THAT(ListPaths(*browser, "/A"), testing::ElementsAre("/A/IN"));
}

TEST(FileRead, Reading_DoesNotChangeTheImage) {
  const auto image = OneFile({.firstCluster = 2, .size = 5}).Data(2, "hello");
  const auto browser = Load(image);

  ReadText(*browser, "/A.TXT");

  EXPECT_EQ(browser->ImageBytes(), image.Bytes());
}

TEST(FileRead, PathInsideTheMessage_IsReadBeforeItIsEmptied) {
  const auto browser = Load(OneFile({.firstCluster = 2, .size = 5}).Data(2, "hello"));
  Bytes content;
  std::string err = "/A.TXT";

  ASSERT_TRUE(browser->ReadFile(err, content, err)) << err;

  EXPECT_EQ(ToText(content), "hello");
}

}  // namespace
}  // namespace quorbix::virtdisk::test
