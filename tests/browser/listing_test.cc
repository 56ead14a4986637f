#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

// /DOCS with README.TXT and SUB in it, /DOCS/SUB with DEEP.TXT, and the file /TOP.TXT.
ImageCrafter DocsTree() {
  auto image = ImageCrafter().File("TOP.TXT").Directory("DOCS", 2);
  image.InCluster(2).DotEntries(2, 0).File("README.TXT").Directory("SUB", 3);
  image.InCluster(3).DotEntries(3, 2).File("DEEP.TXT");
  return image;
}

TEST(Listing, Directory_ShowsItsDirectChildrenOnly) {
  const auto browser = Load(DocsTree());

  EXPECT_THAT(ListPaths(*browser, "/"), testing::ElementsAre("/DOCS", "/TOP.TXT"));
  EXPECT_THAT(ListPaths(*browser, "/DOCS"), testing::ElementsAre("/DOCS/SUB", "/DOCS/README.TXT"));
  EXPECT_THAT(ListPaths(*browser, "/DOCS/SUB"), testing::ElementsAre("/DOCS/SUB/DEEP.TXT"));
}

TEST(Listing, EveryWayToWriteTheRoot_ListsTheRoot) {
  const auto browser = Load(DocsTree());

  for (const char* root : {"", "/", "\\", "//", "/\\/"}) {
    EXPECT_THAT(ListPaths(*browser, root), testing::ElementsAre("/DOCS", "/TOP.TXT")) << root;
  }
}

TEST(Listing, EveryWayToWriteAPath_ListsTheSameDirectory) {
  const auto browser = Load(DocsTree());

  for (const char* path : {"/docs/", "DOCS", "\\Docs", "//docs//", "docs\\"}) {
    EXPECT_THAT(ListPaths(*browser, path), testing::SizeIs(2)) << path;
  }
  EXPECT_THAT(ListPaths(*browser, "docs\\sub"), testing::ElementsAre("/DOCS/SUB/DEEP.TXT"));
}

TEST(Listing, File_IsNoDirectory) {
  EXPECT_EQ(ListMessage(*Load(DocsTree()), "/TOP.TXT"), "directory not found");
}

TEST(Listing, UnknownPath_IsNotFound) {
  const auto browser = Load(DocsTree());

  EXPECT_EQ(ListMessage(*browser, "/NONE"), "directory not found");
  EXPECT_EQ(ListMessage(*browser, "/DOC"), "directory not found");
  EXPECT_EQ(ListMessage(*browser, "/DOCS/NONE"), "directory not found");
  EXPECT_EQ(ListMessage(*browser, "/SUB"), "directory not found");
  EXPECT_EQ(ListMessage(*browser, "/DOCS/."), "directory not found");
  EXPECT_EQ(ListMessage(*browser, "/DOCS/.."), "directory not found");
  EXPECT_EQ(ListMessage(*browser, " "), "directory not found");
  EXPECT_EQ(ListMessage(*browser, "/THIS-IS-NO-SHORT-NAME"), "directory not found");
}

TEST(Listing, NulInAPath_IsNotTakenForPadding) {
  EXPECT_EQ(ListMessage(*Load(DocsTree()), std::string("/DOCS\0", 6)), "directory not found");
}

TEST(Listing, DirectoriesComeFirst_ThenBytewise) {
  auto image = ImageCrafter().File("BETA").File("Alpha   TXT").Directory("ZED", 2);
  image.InCluster(2);

  EXPECT_THAT(ListPaths(*Load(image), "/"), testing::ElementsAre("/ZED", "/Alpha.TXT", "/BETA"));
}

TEST(Listing, UpperCase_ComesBeforeLowerCase) {
  auto image = ImageCrafter().File("b.txt").File("a.txt").File("B.TXT");

  EXPECT_THAT(ListPaths(*Load(image), "/"), testing::ElementsAre("/B.TXT", "/a.txt", "/b.txt"));
}

TEST(Listing, BytesAboveAscii_ComeLast) {
  auto image = ImageCrafter().File("\x80").File("z").File("\xFF").File("~");

  EXPECT_THAT(ListPaths(*Load(image), "/"), testing::ElementsAre("/z", "/~", "/\x80", "/\xFF"));
}

TEST(Listing, ShorterPrefix_ComesFirst) {
  auto image = ImageCrafter().File("AB").File("A.B").File("A");

  EXPECT_THAT(ListPaths(*Load(image), "/"), testing::ElementsAre("/A", "/A.B", "/AB"));
}

TEST(Listing, Directories_AreOrderedByPathToo) {
  auto image = ImageCrafter().Directory("B", 2).Directory("a", 3).Directory("A", 4);
  image.InCluster(2).InCluster(3).InCluster(4);

  EXPECT_THAT(ListPaths(*Load(image), "/"), testing::ElementsAre("/A", "/B", "/a"));
}

TEST(Listing, NamesThatDifferInCase_ShareOneListingSortedByFullPath) {
  auto image = ImageCrafter().Directory("docs", 2).Directory("DOCS", 3);
  image.InCluster(2).File("A.TXT").Directory("SUB", 4);
  image.InCluster(3).File("B.TXT");
  image.InCluster(4);
  const auto browser = Load(image);

  EXPECT_THAT(ListPaths(*browser, "/Docs"),
              testing::ElementsAre("/docs/SUB", "/DOCS/B.TXT", "/docs/A.TXT"));
}

TEST(Listing, DuplicateNames_AreBothListed) {
  auto image = ImageCrafter()
                   .File("A.TXT", {.firstCluster = 2, .size = 1})
                   .File("A.TXT", {.firstCluster = 3, .size = 2});

  const auto entries = List(*Load(image), "/");

  EXPECT_THAT(PathsOf(entries), testing::ElementsAre("/A.TXT", "/A.TXT"));
}

TEST(Listing, FileAndDirectoryOfOneName_KeepTheDirectoryKnown) {
  auto image = ImageCrafter().File("A").Directory("A", 2).InCluster(2).File("IN");

  const auto browser = Load(image);

  EXPECT_THAT(ListPaths(*browser, "/A"), testing::ElementsAre("/A/IN"));
  EXPECT_EQ(ReadMessage(*browser, "/A"), "");  // the file came first
}

TEST(Listing, Results_AreReplacedAndTheMessageEmptied) {
  const auto browser = Load(DocsTree());
  std::vector<Fat16FsEntry> results(5);
  std::string err = "left over";

  ASSERT_TRUE(browser->ListDirectory("/DOCS/SUB", results, err));

  EXPECT_EQ(PathsOf(results), Names{"/DOCS/SUB/DEEP.TXT"});
  EXPECT_EQ(err, "");
}

TEST(Listing, Failure_EmptiesTheResults) {
  const auto browser = Load(DocsTree());
  std::vector<Fat16FsEntry> results(5);
  std::string err;

  EXPECT_FALSE(browser->ListDirectory("/NONE", results, err));

  EXPECT_TRUE(results.empty());
}

TEST(Listing, PathInsideTheResults_IsReadBeforeTheyAreReplaced) {
  const auto browser = Load(DocsTree());
  std::vector<Fat16FsEntry> results = List(*browser, "/");
  std::string err;

  ASSERT_TRUE(browser->ListDirectory(results[0].path, results, err)) << err;

  EXPECT_EQ(PathsOf(results), (Names{"/DOCS/SUB", "/DOCS/README.TXT"}));
}

TEST(Listing, PathInsideTheMessage_IsReadBeforeItIsEmptied) {
  const auto browser = Load(DocsTree());
  std::vector<Fat16FsEntry> results;
  std::string err = "/DOCS/SUB";

  ASSERT_TRUE(browser->ListDirectory(err, results, err));

  EXPECT_THAT(results, testing::SizeIs(1));
}

TEST(Listing, Results_AreCopiesThatOutliveTheBrowser) {
  auto browser = Load(DocsTree());
  const std::vector<Fat16FsEntry> results = List(*browser, "/");

  browser.reset();

  EXPECT_EQ(PathsOf(results), (Names{"/DOCS", "/TOP.TXT"}));
}

TEST(Listing, PathWithANul_IsTakenWhole) {
  using namespace std::string_literals;
  const auto browser = Load(ImageCrafter().Directory("D", 2).File("A").InCluster(2).File("B"));

  EXPECT_EQ(ListMessage(*browser, "/D\0"s), "directory not found");
  EXPECT_EQ(ListMessage(*browser, "\0/D"s), "directory not found");
  EXPECT_EQ(ReadMessage(*browser, "/A\0"s), "file not found");
}

}  // namespace
}  // namespace quorbix::virtdisk::test
