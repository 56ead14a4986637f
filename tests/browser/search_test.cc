#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

// /A with README.TXT; /TXTFILES with ONE and SUB; /TXTFILES/SUB with TWO; /B.DAT
ImageCrafter TextTree() {
  auto image = ImageCrafter().Directory("TXTFILES", 3).Directory("A", 2).File("B.DAT");
  image.InCluster(2).File("README.TXT");
  image.InCluster(3).File("ONE").Directory("SUB", 4);
  image.InCluster(4).File("TWO");
  return image;
}

std::string SearchMessage(const Fat16FsImage& browser, const std::string& query) {
  std::vector<Fat16FsEntry> results(3);
  std::string err = "left over";
  const bool succeeded = browser.Search(query, results, err);
  EXPECT_EQ(succeeded, err.empty());
  EXPECT_TRUE(err.empty() || results.empty());
  return err;
}

TEST(Search, Text_IsFoundInNamesAndBelowMatchingDirectories) {
  EXPECT_THAT(SearchPaths(*Load(TextTree()), "TXT"),
              testing::ElementsAre("/A/README.TXT", "/TXTFILES", "/TXTFILES/ONE", "/TXTFILES/SUB",
                                   "/TXTFILES/SUB/TWO"));
}

TEST(Search, LetterCase_DoesNotMatter) {
  EXPECT_THAT(SearchPaths(*Load(TextTree()), "readme.T"), testing::ElementsAre("/A/README.TXT"));
  EXPECT_THAT(SearchPaths(*Load(ImageCrafter().File("lower.txt")), "LOWER"),
              testing::ElementsAre("/lower.txt"));
}

TEST(Search, TextAcrossASeparator_MatchesThePath) {
  const auto browser = Load(TextTree());

  EXPECT_THAT(SearchPaths(*browser, "a/re"), testing::ElementsAre("/A/README.TXT"));
  EXPECT_THAT(SearchPaths(*browser, "files/sub/t"), testing::ElementsAre("/TXTFILES/SUB/TWO"));
  EXPECT_THAT(SearchPaths(*browser, "S/"), testing::SizeIs(3));
}

TEST(Search, TextThatSpansTheDirectoryAndBelow_MatchesEverythingBelow) {
  EXPECT_THAT(SearchPaths(*Load(TextTree()), "TXTFILES/S"),
              testing::ElementsAre("/TXTFILES/SUB", "/TXTFILES/SUB/TWO"));
}

TEST(Search, WholePath_MatchesItself) {
  const auto browser = Load(TextTree());

  EXPECT_THAT(SearchPaths(*browser, "/TXTFILES/SUB/TWO"),
              testing::ElementsAre("/TXTFILES/SUB/TWO"));
  EXPECT_TRUE(SearchPaths(*browser, "//TXTFILES").empty());
  EXPECT_TRUE(SearchPaths(*browser, "/TXTFILES/SUB/TWO/").empty());
}

TEST(Search, QueryThatEndsInASlash_FindsWhatLiesBelowAlone) {
  const auto browser = Load(TextTree());

  EXPECT_THAT(SearchPaths(*browser, "sub/"), testing::ElementsAre("/TXTFILES/SUB/TWO"));
  EXPECT_THAT(SearchPaths(*browser, "/A/"), testing::ElementsAre("/A/README.TXT"));
  EXPECT_THAT(SearchPaths(*browser, "B.DAT/"), testing::IsEmpty());
}

TEST(Search, QueryWithANul_IsTakenWhole) {
  using namespace std::string_literals;
  const auto browser = Load(TextTree());

  EXPECT_THAT(SearchPaths(*browser, "README\0"s), testing::IsEmpty());
  EXPECT_THAT(SearchPaths(*browser, "\0"s), testing::IsEmpty());
  EXPECT_EQ(SearchMessage(*browser, "\0README"s), "");
}

TEST(Search, Query_IsNotNormalised) {
  const auto browser = Load(TextTree());

  EXPECT_TRUE(SearchPaths(*browser, "a\\re").empty());
  EXPECT_TRUE(SearchPaths(*browser, " README").empty());
}

TEST(Search, TextOfASiblingPath_DoesNotLeakIntoTheNext) {
  // /LONGNAME and /X are neighbours: no part of the first path may be seen in the second.
  auto image = ImageCrafter().File("LONGNAME.TXT").File("X").File("ME.TXT");

  EXPECT_THAT(SearchPaths(*Load(image), "NAME"), testing::ElementsAre("/LONGNAME.TXT"));
  EXPECT_THAT(SearchPaths(*Load(image), "ME.TXT"),
              testing::ElementsAre("/LONGNAME.TXT", "/ME.TXT"));
  EXPECT_THAT(SearchPaths(*Load(image), "X/"), testing::IsEmpty());
}

TEST(Search, Slash_FindsEverythingButTheRoot) {
  EXPECT_THAT(SearchPaths(*Load(TextTree()), "/"), testing::SizeIs(7));
}

TEST(Search, NothingFound_IsASuccess) {
  EXPECT_EQ(SearchMessage(*Load(TextTree()), "NOWHERE"), "");
}

TEST(Search, EmptyQuery_Fails) { EXPECT_EQ(SearchMessage(*Load(TextTree()), ""), "empty query"); }

TEST(Search, EmptyQuery_FailsBeforeAnyLoadToo) {
  EXPECT_EQ(SearchMessage(Fat16FsImage(), ""), "empty query");
}

TEST(Search, Blank_IsSearchedFor) {
  auto image = ImageCrafter().File("A B.TXT").File("AB.TXT");

  EXPECT_THAT(SearchPaths(*Load(image), " "), testing::ElementsAre("/A B.TXT"));
}

TEST(Search, QueryLongerThanAnyPath_FindsNothing) {
  EXPECT_TRUE(SearchPaths(*Load(TextTree()), std::string(100000, 'A')).empty());
}

TEST(Search, Results_AreOrderedByPathWithoutDirectoriesFirst) {
  auto image = ImageCrafter().Directory("ZED", 2).File("b").File("A").File("a");
  image.InCluster(2);

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/A", "/ZED", "/a", "/b"));
}

TEST(Search, NewBrowser_FindsNothing) { EXPECT_TRUE(SearchPaths(Fat16FsImage(), "A").empty()); }

TEST(Search, QueryInsideTheResults_IsReadBeforeTheyAreReplaced) {
  // The first match takes the place in `results` where the query lay.
  const auto browser = Load(ImageCrafter().File("BA").File("A").File("CA"));
  std::vector<Fat16FsEntry> results = List(*browser, "/");
  std::string err;

  ASSERT_TRUE(browser->Search(results[0].name, results, err)) << err;

  EXPECT_EQ(PathsOf(results), (Names{"/A", "/BA", "/CA"}));
}

}  // namespace
}  // namespace quorbix::virtdisk::test
