#include "host/folder_survey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<std::string> Renames(const FolderSurvey& survey) {
  std::vector<std::string> lines;
  for (const Renamed& entry : survey.renamed) {
    lines.push_back(entry.host.string() + " -> " + entry.image);
  }
  return lines;
}

TEST(SurveyFolder, EmptyFolder_HasNothing) {
  const TempFolder folder;
  const FolderSurvey survey = SurveyFolder(folder.Path());
  EXPECT_EQ(survey.files, 0U);
  EXPECT_EQ(survey.directories, 0U);
  EXPECT_THAT(survey.content.fileBytes, IsEmpty());
  EXPECT_THAT(survey.content.directoryEntries, IsEmpty());
}

TEST(SurveyFolder, Tree_IsCountedByDirectory) {
  TempFolder folder;
  folder.File("A.TXT", "abc").File("SUB/B.TXT", "b").File("SUB/C.TXT").Folder("SUB/DEEP");
  const FolderSurvey survey = SurveyFolder(folder.Path());
  EXPECT_EQ(survey.files, 3U);
  EXPECT_EQ(survey.directories, 2U);
  EXPECT_THAT(survey.content.fileBytes, UnorderedElementsAre(3, 1));
  EXPECT_THAT(survey.content.directoryEntries, UnorderedElementsAre(3, 0));
}

TEST(SurveyFolder, NamesThatChange_AreListedWithTheirFolders) {
  TempFolder folder;
  folder.File("KEPT.TXT").File("LongFileName.txt").File("SUB/lower.txt").File(".profile");
  EXPECT_THAT(Renames(SurveyFolder(folder.Path())),
              UnorderedElementsAre("LongFileName.txt -> LONGFILE.TXT", "SUB/lower.txt -> LOWER.TXT",
                                   ".profile -> "));
}

TEST(SurveyFolder, HundredAndFirstNameAlike_IsLeftOut) {
  TempFolder folder;
  for (int i = 0; i < 101; ++i) folder.File("LONGNAME" + std::to_string(i) + ".TXT", "x");
  EXPECT_EQ(SurveyFolder(folder.Path()).files, 100U);
}

TEST(SurveyFolder, PipesAndDanglingLinks_AreLeftOut) {
  TempFolder folder;
  folder.Pipe("PIPE").Link("NOWHERE", "missing").File("A.TXT", "a");
  const FolderSurvey survey = SurveyFolder(folder.Path());
  EXPECT_EQ(survey.files, 1U);
  EXPECT_EQ(survey.unreadable, 0U);
}

TEST(SurveyFolder, Links_AreFollowed) {
  TempFolder folder;
  folder.File("SUB/A.TXT", "abcd").Link("FILE", "SUB/A.TXT").Link("FOLDER", "SUB");
  const FolderSurvey survey = SurveyFolder(folder.Path());
  EXPECT_EQ(survey.files, 3U);
  EXPECT_EQ(survey.directories, 2U);
  EXPECT_THAT(survey.content.fileBytes, ElementsAre(4, 4, 4));
}

TEST(SurveyFolder, FileWithContentButSize0_IsReadToItsEnd) {
  TempFolder folder;
  folder.Link("VERSION", "/proc/version");
  const FolderSurvey survey = SurveyFolder(folder.Path());
  EXPECT_THAT(survey.content.fileBytes, ElementsAre(test::ReadWholeFile("/proc/version").size()));
}

TEST(SurveyFolder, FileThatFailsHalfWay_IsUnreadable) {
  TempFolder folder;
  folder.Link("MEM", "/proc/self/mem");
  const FolderSurvey survey = SurveyFolder(folder.Path());
  EXPECT_EQ(survey.files, 0U);
  EXPECT_EQ(survey.unreadable, 1U);
}

TEST(SurveyFolder, ForbiddenFileAndFolder_CostOnlyTheirContent) {
  TempFolder folder;
  folder.File("A.TXT", "a").File("B.TXT", "b").Forbidden("B.TXT");
  folder.File("SUB/C.TXT", "c").Forbidden("SUB");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const FolderSurvey survey = SurveyFolder(folder.Path());
    const bool asExpected = survey.files == 1 && survey.unreadable == 1 &&
                            survey.directories == 1 && survey.content.fileBytes.size() == 1;
    return asExpected ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(SurveyFolder, RootOf511Entries_DoesNotOverflow) {
  TempFolder folder;
  for (int i = 0; i < 511; ++i) folder.File(std::to_string(i), "x");
  EXPECT_FALSE(SurveyFolder(folder.Path()).content.rootOverflows);
  folder.File("ONE-MORE", "x");
  EXPECT_TRUE(SurveyFolder(folder.Path()).content.rootOverflows);
}

TEST(SurveyFolder, EmptyFilesBeyondTheRootsSlots_AreDropped) {
  TempFolder folder;
  for (int i = 0; i < 600; ++i) folder.File(std::to_string(i));
  const FolderSurvey survey = SurveyFolder(folder.Path());
  EXPECT_FALSE(survey.content.rootOverflows);
  EXPECT_EQ(survey.files, 511U);
}

TEST(SurveyFolder, LinksBackUp_EndTheSurvey) {
  TempFolder folder;
  folder.Link("A", ".").Link("B", ".").File("C.TXT", "c");
  const FolderSurvey survey = SurveyFolder(folder.Path());
  EXPECT_TRUE(survey.content.endless);
  EXPECT_LE(survey.directories, 65525U);
}

TEST(SurveyFolder, FilesBeyondAnyImage_EndTheSurvey) {
  TempFolder folder;
  folder.File("SPARSE.BIN");
  std::filesystem::resize_file(folder / "SPARSE.BIN", 5ULL << 30);
  EXPECT_TRUE(SurveyFolder(folder.Path()).content.endless);
}

TEST(SurveyFolder, ThousandLevels_NeedFewDescriptors) {
  TempFolder folder;
  std::string path;
  for (int i = 0; i < 1000; ++i) path += "D/";
  folder.File(path + "A.TXT", "a");
  const int status = test::RunInChild({.openFileLimit = 16}, [&] {
    const FolderSurvey survey = SurveyFolder(folder.Path());
    return survey.files == 1 && survey.directories == 1000 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(SurveyFolder, MissingFolder_HasNothing) {
  const FolderSurvey survey = SurveyFolder("/nonexistent/folder");
  EXPECT_EQ(survey.files, 0U);
  EXPECT_FALSE(survey.content.endless);
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
