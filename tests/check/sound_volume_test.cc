// Volumes that the library builds are sound, and reading that fails is told.

#include <filesystem>

#include <quorbix/virtdisk/fat_image_builder.h>

#include "browser/file_source.h"
#include "check/check_fixture.h"
#include "support/random_tree.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

using ::testing::IsEmpty;

constexpr std::uint64_t kMiB = 1048576;

CheckReport BuiltAndChecked(std::uint64_t imageBytes, const test::TreeShape& shape) {
  test::TempFolder folder;
  test::MakeRandomTree(folder / "Disk", shape);
  const auto builder = CreateFat16Builder();
  EXPECT_TRUE(builder->Build(folder / "Disk", folder / "disk.img", imageBytes))
      << builder->LastError();
  std::string err;
  const auto source = FileSource::Open(folder / "disk.img", err);
  CheckReport report;
  EXPECT_TRUE(source && CheckVolume(*source, report, err)) << err;
  return report;
}

TEST(SoundVolume, BuiltDisk_HasNoFindings) {
  const CheckReport report = BuiltAndChecked(33 * kMiB, {.seed = 1, .files = 200});
  EXPECT_THAT(Said(report), IsEmpty());
  EXPECT_EQ(report.counts.files, 200u);
  EXPECT_EQ(report.counts.lostClusters, 0u);
  EXPECT_TRUE(report.isWhole);
}

TEST(SoundVolume, BuiltDiskWithDotFilesAndInnerBlanks_HasRemarksOnly) {
  const CheckReport report = BuiltAndChecked(
      3 * kMiB, {.seed = 2, .mostBytes = 9000, .innerBlanks = true, .dotFiles = true});
  EXPECT_TRUE(report.IsSound());
  EXPECT_GT(report.counts.hiddenEntries, 0u);
  EXPECT_EQ(report.Found(FindingKind::kHiddenEntry) + report.Found(FindingKind::kLeadingBlank) +
                report.Found(FindingKind::kFewClusters),
            report.findings.size());
}

TEST(SoundVolume, BuiltDiskOfASizeThatOthersRefuse_HasARemark) {
  const CheckReport report = BuiltAndChecked(528 * kMiB, {.seed = 3, .files = 5});
  EXPECT_TRUE(report.IsSound());
  EXPECT_EQ(report.Found(FindingKind::kFatTooShort), 1u);
}

// Gives its first bytes and fails behind them.
class FailingSource final : public ByteSource {
 public:
  FailingSource(std::vector<std::uint8_t> imageBytes, std::uint64_t goodBytes)
      : bytes(std::move(imageBytes)), good(goodBytes) {}

  std::uint64_t Size() const override { return bytes.size(); }
  const std::uint8_t* Read(std::uint64_t offset, std::size_t size,
                           std::vector<std::uint8_t>& /*buffer*/, std::string& err) override {
    if (offset + size <= good) return bytes.data() + offset;
    err = "broken";
    return nullptr;
  }

 private:
  std::vector<std::uint8_t> bytes;
  std::uint64_t good;
};

TEST(FailingImage, FailureAtAnySector_IsTold) {
  const auto image =
      test::ImageCrafter().Directory("SUB", 2).Chain({2}).InCluster(2).DotEntries(2, 0);
  for (std::uint64_t good = 0; good < image.ClusterOffset(3); good += 512) {
    FailingSource source(image.Bytes(), good);
    CheckReport report;
    std::string err;
    EXPECT_FALSE(CheckVolume(source, report, err)) << good;
    EXPECT_EQ(err, "broken");
  }
  FailingSource source(image.Bytes(), image.ClusterOffset(3));
  CheckReport report;
  std::string err;
  EXPECT_TRUE(CheckVolume(source, report, err)) << err;
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
