#include "commands/demo_sample.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "host/folder_survey.h"
#include "host/names.h"
#include "support/temp_folder.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::Pair;

TEST(WriteSample, Names_AreThoseOfTheDiskInAnotherCase) {
  const TempFolder folder;
  WriteSample(folder / "SAMPLE");
  const FolderSurvey survey = SurveyFolder(folder / "SAMPLE");
  EXPECT_EQ(survey.files, 6U);
  EXPECT_EQ(survey.content.fileBytes.size(), 6U);
  for (const Renamed& entry : survey.renamed) {
    EXPECT_EQ(PathKey(entry.host.filename().string()), PathKey(entry.image));
  }
}

TEST(CopyUnderShortNames, Tree_GetsTheNamesOfTheDisk) {
  TempFolder folder;
  folder.File("FROM/Long name.txt", "1").File("FROM/Sub folder/b.c.d", "2").Pipe("FROM/pipe");
  CopyUnderShortNames(folder / "FROM", folder / "TO");
  EXPECT_THAT(folder.Files("TO"),
              ElementsAre(Pair("LONG_NAM.TXT", "1"), Pair("SUB_FOLD/B_C.D", "2")));
}

TEST(CopyUnderShortNames, Copy_NeedsNoOtherNames) {
  TempFolder folder;
  folder.File("FROM/a.txt", "1").File("FROM/A.TXT", "2").File("FROM/.hidden", "3");
  CopyUnderShortNames(folder / "FROM", folder / "TO");
  EXPECT_EQ(folder.Files("TO").size(), 2U);
  EXPECT_TRUE(SurveyFolder(folder / "TO").renamed.empty());
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
