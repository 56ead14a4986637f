#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

// Every offset at which two images differ.
std::vector<std::size_t> Differences(const Bytes& a, const Bytes& b) {
  EXPECT_EQ(a.size(), b.size());
  std::vector<std::size_t> offsets;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    if (a[i] != b[i]) offsets.push_back(i);
  }
  return offsets;
}

std::string Sector(const Bytes& image, std::size_t offset) {
  const auto begin = image.begin() + static_cast<std::ptrdiff_t>(offset);
  return std::string(begin, begin + 512);
}

// A.TXT owns the clusters 5, 9 and 3 of 512 bytes; its slot is the root's second.
ImageCrafter ThreeClusters() {
  return ImageCrafter()
      .File("OTHER.TXT", {.firstCluster = 4, .size = 512})
      .File("A.TXT", {.firstCluster = 5, .size = 1500, .writeTime = 0x1234, .writeDate = 0x5678})
      .Chain({5, 9, 3})
      .Chain({4})
      .Fill(4, 'o')
      .Fill(5, 'a')
      .Fill(9, 'b')
      .Fill(3, 'c');
}

TEST(FileRewrite, ShortContent_ReplacesTheFrontAndZeroesTheRest) {
  const auto image = ThreeClusters();
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", "0123456789"), "");

  const Bytes& bytes = browser->ImageBytes();
  EXPECT_EQ(Sector(bytes, image.ClusterOffset(5)), "0123456789" + std::string(502, '\0'));
  EXPECT_EQ(Sector(bytes, image.ClusterOffset(9)), std::string(512, '\0'));
  EXPECT_EQ(Sector(bytes, image.ClusterOffset(3)), std::string(512, '\0'));
  EXPECT_EQ(ReadText(*browser, "/A.TXT"), "0123456789");
  EXPECT_EQ(EntryAt(*browser, "/A.TXT").size, 10u);
}

TEST(FileRewrite, TenBytesInLargeClusters_LeaveZerosInAllThree) {
  auto image = ImageCrafter({.sectorsPerCluster = 4});
  image.File("A.TXT", {.firstCluster = 2, .size = 6000}).Chain({2, 3, 4});
  image.Fill(2, 'a').Fill(3, 'b').Fill(4, 'c');
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", "0123456789"), "");

  Bytes expected = image.Bytes();
  const auto data = expected.begin() + static_cast<std::ptrdiff_t>(image.ClusterOffset(2));
  std::fill(data, data + 3 * 2048, std::uint8_t{0});
  std::copy_n("0123456789", 10, data);
  const std::size_t sizeField = image.RootOffset() + 28;
  expected[sizeField] = 10;
  expected[sizeField + 1] = 0;
  EXPECT_EQ(Differences(browser->ImageBytes(), expected), std::vector<std::size_t>{});
}

TEST(FileRewrite, Content_CrossesClustersInChainOrder) {
  const auto image = ThreeClusters();
  const auto browser = Load(image);
  const std::string content = std::string(512, 'x') + std::string(512, 'y') + "z";

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", content), "");

  const Bytes& bytes = browser->ImageBytes();
  EXPECT_EQ(Sector(bytes, image.ClusterOffset(5)), std::string(512, 'x'));
  EXPECT_EQ(Sector(bytes, image.ClusterOffset(9)), std::string(512, 'y'));
  EXPECT_EQ(Sector(bytes, image.ClusterOffset(3)), "z" + std::string(511, '\0'));
  EXPECT_EQ(ReadText(*browser, "/A.TXT"), content);
}

TEST(FileRewrite, ContentThatEndsWithACluster_ZeroesTheClustersAfterIt) {
  const auto image = ThreeClusters();
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", std::string(512, 'x')), "");

  EXPECT_EQ(Sector(browser->ImageBytes(), image.ClusterOffset(5)), std::string(512, 'x'));
  EXPECT_EQ(Sector(browser->ImageBytes(), image.ClusterOffset(9)), std::string(512, '\0'));
}

TEST(FileRewrite, ContentOfAllAllocatedBytes_FillsTheChain) {
  const auto browser = Load(ThreeClusters());
  const std::string content(3 * 512, 'x');

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", content), "");

  EXPECT_EQ(ReadText(*browser, "/A.TXT"), content);
}

TEST(FileRewrite, OneByteMoreThanAllocated_IsRefusedAndChangesNothing) {
  const auto image = ThreeClusters();
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", std::string(3 * 512 + 1, 'x')),
            "new file content exceeds allocated cluster chain");

  EXPECT_EQ(browser->ImageBytes(), image.Bytes());
  EXPECT_EQ(EntryAt(*browser, "/A.TXT").size, 1500u);
}

TEST(FileRewrite, EmptyContent_ZeroesTheWholeChain) {
  const auto image = ThreeClusters();
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", ""), "");

  for (const std::uint32_t cluster : {5u, 9u, 3u}) {
    EXPECT_EQ(Sector(browser->ImageBytes(), image.ClusterOffset(cluster)), std::string(512, '\0'));
  }
  EXPECT_EQ(EntryAt(*browser, "/A.TXT").size, 0u);
  EXPECT_EQ(EntryAt(*browser, "/A.TXT").firstCluster, 5);
}

TEST(FileRewrite, EmptiedFile_CanGrowAgain) {
  const auto browser = Load(ThreeClusters());
  ASSERT_EQ(WriteMessage(*browser, "/A.TXT", ""), "");

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", std::string(1536, 'n')), "");

  EXPECT_EQ(ReadText(*browser, "/A.TXT"), std::string(1536, 'n'));
}

TEST(FileRewrite, EverythingElse_KeepsItsBytes) {
  const auto image = ThreeClusters();
  const auto browser = Load(image);

  ASSERT_EQ(WriteMessage(*browser, "/A.TXT", std::string(700, 'x')), "");

  const std::size_t sizeField = image.RootOffset() + 32 + 28;
  for (const std::size_t offset : Differences(image.Bytes(), browser->ImageBytes())) {
    const auto inCluster = [&](std::uint32_t cluster) {
      return offset >= image.ClusterOffset(cluster) && offset < image.ClusterOffset(cluster) + 512;
    };
    const bool inSizeField = offset >= sizeField && offset < sizeField + 4;
    EXPECT_TRUE(inCluster(5) || inCluster(9) || inCluster(3) || inSizeField) << offset;
  }
}

TEST(FileRewrite, ContentOfMoreThan16MiB_IsWrittenWhole) {
  constexpr std::size_t kSize = (std::size_t{16} << 20) + 70001;
  auto image = ImageCrafter({.sectorsPerCluster = 64, .sectorsPerFat = 3, .clusters = 600});
  image.File("A", {.firstCluster = 2, .size = 1}).Chain(Clusters(2, 601));
  const auto browser = Load(image);
  Bytes content(kSize);
  for (std::size_t i = 0; i < kSize; ++i) content[i] = static_cast<std::uint8_t>(i / 4099 + i);

  ASSERT_EQ(WriteMessage(*browser, "/A", content), "");

  EXPECT_EQ(EntryAt(*browser, "/A").size, kSize);
  EXPECT_TRUE(ToBytes(ReadText(*browser, "/A")) == content);
  const std::size_t data = image.ClusterOffset(2);
  EXPECT_EQ(browser->ImageBytes()[data + kSize - 1], content.back());
  EXPECT_EQ(browser->ImageBytes()[data + kSize], 0);
  EXPECT_EQ(browser->ImageBytes()[image.ClusterOffset(602) - 1], 0);
}

TEST(FileRewrite, SizeField_IsWrittenLittleEndian) {
  auto image = ImageCrafter({.sectorsPerFat = 2, .clusters = 400});
  image.File("A.TXT", {.firstCluster = 2, .size = 0xFFFFFFFF}).Chain(Clusters(2, 301));
  const auto browser = Load(image);

  ASSERT_EQ(WriteMessage(*browser, "/A.TXT", std::string(0x020103, 'x')), "");

  const std::size_t sizeField = image.RootOffset() + 28;
  EXPECT_EQ(browser->ImageBytes()[sizeField], 0x03);
  EXPECT_EQ(browser->ImageBytes()[sizeField + 1], 0x01);
  EXPECT_EQ(browser->ImageBytes()[sizeField + 2], 0x02);
  EXPECT_EQ(browser->ImageBytes()[sizeField + 3], 0x00);
}

TEST(FileRewrite, DatesAttributesAndFirstCluster_StayAsTheyAre) {
  const auto browser = Load(ThreeClusters());

  ASSERT_EQ(WriteMessage(*browser, "/A.TXT", "new"), "");

  const Fat16FsEntry entry = EntryAt(*browser, "/A.TXT");
  EXPECT_EQ(entry.attributes, 0x20);
  EXPECT_EQ(entry.writeTime, 0x1234);
  EXPECT_EQ(entry.writeDate, 0x5678);
  EXPECT_EQ(entry.firstCluster, 5);
}

TEST(FileRewrite, MissingArchiveBit_IsNotSet) {
  auto image = ImageCrafter().File("A", {.attributes = 0x01, .firstCluster = 2, .size = 1});
  const auto browser = Load(image);

  ASSERT_EQ(WriteMessage(*browser, "/A", "x"), "");

  EXPECT_EQ(EntryAt(*browser, "/A").attributes, 0x01);
}

TEST(FileRewrite, FileInASubdirectory_UpdatesItsOwnSlot) {
  auto image = ImageCrafter().Directory("D", 2).InCluster(2).DotEntries(2, 0);
  const std::size_t slot = image.NextSlotOffset();
  image.File("A.TXT", {.firstCluster = 3, .size = 1}).Chain({3});
  const auto browser = Load(image);

  ASSERT_EQ(WriteMessage(*browser, "d\\a.txt", "abc"), "");

  EXPECT_EQ(browser->ImageBytes()[slot + 28], 3);
  EXPECT_EQ(ReadText(*browser, "/D/A.TXT"), "abc");
}

TEST(FileRewrite, SlotInALaterClusterOfItsDirectory_IsUpdated) {
  auto image = ImageCrafter().Directory("D", 2).Chain({2, 8}).InCluster(2);
  for (int i = 0; i < 17; ++i) image.File("F" + std::to_string(i));
  const std::size_t slot = image.NextSlotOffset();
  image.File("A.TXT", {.firstCluster = 3, .size = 1}).Chain({3});
  const auto browser = Load(image);

  ASSERT_EQ(WriteMessage(*browser, "/D/A.TXT", "abcd"), "");

  EXPECT_EQ(slot, image.ClusterOffset(8) + 32);
  EXPECT_EQ(browser->ImageBytes()[slot + 28], 4);
}

TEST(FileRewrite, UnknownPath_IsNotFound) {
  EXPECT_EQ(WriteMessage(*Load(ThreeClusters()), "/B.TXT", "x"), "file not found");
  EXPECT_EQ(WriteMessage(*Load(ThreeClusters()), "/", "x"), "file not found");
}

TEST(FileRewrite, NewBrowser_HasNoFile) {
  Fat16FsImage browser;

  EXPECT_EQ(WriteMessage(browser, "/A", ""), "file not found");
}

TEST(FileRewrite, Directory_IsRefused) {
  auto image = ImageCrafter().Directory("D", 2).InCluster(2);

  EXPECT_EQ(WriteMessage(*Load(image), "/D", ""), "path is a directory");
}

TEST(FileRewrite, DuplicateNames_RewriteTheFirstOnly) {
  auto image = ImageCrafter()
                   .File("A", {.firstCluster = 2, .size = 1})
                   .File("A", {.firstCluster = 3, .size = 1})
                   .Data(3, "s");
  const auto browser = Load(image);

  ASSERT_EQ(WriteMessage(*browser, "/a", "xyz"), "");

  EXPECT_EQ(browser->ImageBytes()[image.RootOffset() + 28], 3);
  EXPECT_EQ(browser->ImageBytes()[image.RootOffset() + 32 + 28], 1);
  EXPECT_EQ(browser->ImageBytes()[image.ClusterOffset(3)], 's');
}

TEST(FileRewrite, EmptyContentWithoutAnyCluster_OnlySetsTheSize) {
  auto image = ImageCrafter().File("A", {.firstCluster = 0, .size = 0x01020304});
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/A", ""), "");

  const std::size_t sizeField = image.RootOffset() + 28;
  EXPECT_EQ(Differences(image.Bytes(), browser->ImageBytes()),
            (std::vector<std::size_t>{sizeField, sizeField + 1, sizeField + 2, sizeField + 3}));
  EXPECT_EQ(EntryAt(*browser, "/A").size, 0u);
}

TEST(FileRewrite, EmptyContentWithAnEndMarkAsFirstCluster_OnlySetsTheSize) {
  auto image = ImageCrafter().File("A", {.firstCluster = 0xFFFF, .size = 7});
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/A", ""), "");

  EXPECT_THAT(Differences(image.Bytes(), browser->ImageBytes()), testing::SizeIs(1));
}

TEST(FileRewrite, ContentWithoutAnyCluster_IsTooLong) {
  for (const std::uint16_t start : Words{0x0000, 0x0001, 0xFFF8}) {
    auto image = ImageCrafter().File("A", {.firstCluster = start, .size = 9});
    const auto browser = Load(image);

    EXPECT_EQ(WriteMessage(*browser, "/A", "x"),
              "new file content exceeds allocated cluster chain");
    EXPECT_EQ(browser->ImageBytes(), image.Bytes());
  }
}

TEST(FileRewrite, BrokenChain_IsRefusedAndChangesNothing) {
  auto image = ImageCrafter().File("LOOP", {.firstCluster = 2, .size = 9}).FatWord(2, 2);
  image.File("FAR", {.firstCluster = 3, .size = 9}).FatWord(3, 5000);
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/LOOP", "x"),
            "new file content exceeds allocated cluster chain");
  EXPECT_EQ(WriteMessage(*browser, "/LOOP", ""), "cluster loop detected");
  EXPECT_EQ(WriteMessage(*browser, "/FAR", ""), "cluster offset out of range");
  EXPECT_EQ(browser->ImageBytes(), image.Bytes());
}

TEST(FileRewrite, FileThatSharesADirectorysCluster_LeavesTheFailureOfTheNewLoad) {
  // The file's cluster holds the directory D; its new content makes D hold a broken directory.
  auto image = ImageCrafter().Directory("D", 2).File("A", {.firstCluster = 2, .size = 32});
  image.InCluster(2);
  const auto browser = Load(image);
  Bytes slot = ToBytes("BAD        \x10");
  slot.resize(32);
  slot[26] = 0xF7;
  slot[27] = 0xFF;

  EXPECT_EQ(WriteMessage(*browser, "/A", slot), "cluster offset out of range");

  EXPECT_EQ(browser->ImageBytes()[image.ClusterOffset(2)], 'B');
  EXPECT_EQ(browser->ImageBytes()[image.RootOffset() + 32 + 28], 32);
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/D", "/D/BAD"));
}

TEST(FileRewrite, SlotInsideTheFilesOwnCluster_GetsTheSizeLast) {
  // The file's only cluster is the directory that holds its own slot.
  auto image = ImageCrafter().Directory("D", 2).InCluster(2);
  image.File("A", {.firstCluster = 2, .size = 32});
  const auto browser = Load(image);
  Bytes slot = ToBytes("B          \x20");
  slot.resize(32);

  EXPECT_EQ(WriteMessage(*browser, "/D/A", slot), "");

  EXPECT_EQ(EntryAt(*browser, "/D/B").size, 32u);
}

TEST(FileRewrite, OwnContent_ChangesNothingButSlack) {
  const auto image = ThreeClusters();
  const auto browser = Load(image);

  ASSERT_EQ(WriteMessage(*browser, "/A.TXT", ReadText(*browser, "/A.TXT")), "");

  for (const std::size_t offset : Differences(image.Bytes(), browser->ImageBytes())) {
    EXPECT_GE(offset, image.ClusterOffset(3) + 1500 - 1024);
    EXPECT_LT(offset, image.ClusterOffset(3) + 512);
  }
}

TEST(FileRewrite, References_StayValid) {
  const auto browser = Load(ThreeClusters());
  const Bytes& bytes = browser->ImageBytes();
  const std::uint8_t* data = bytes.data();
  const Fat16FsInfo& info = browser->Info();

  ASSERT_EQ(WriteMessage(*browser, "/A.TXT", "new"), "");

  EXPECT_EQ(&bytes, &browser->ImageBytes());
  EXPECT_EQ(data, browser->ImageBytes().data());
  EXPECT_EQ(&info, &browser->Info());
  EXPECT_EQ(info.sectorsPerCluster, 1);
}

TEST(FileRewrite, WholeImageAsContent_IsTooLong) {
  const auto image = ThreeClusters();
  const auto browser = Load(image);

  EXPECT_EQ(WriteMessage(*browser, "/A.TXT", browser->ImageBytes()),
            "new file content exceeds allocated cluster chain");
  EXPECT_EQ(browser->ImageBytes(), image.Bytes());
}

TEST(FileRewrite, PathInsideTheMessage_IsReadBeforeItIsEmptied) {
  const auto browser = Load(ThreeClusters());
  std::string err = "/A.TXT";

  EXPECT_TRUE(browser->WriteExistingFile(err, ToBytes("x"), err)) << err;
}

TEST(FileRewrite, EarlierResults_StayAsTheyWere) {
  const auto browser = Load(ThreeClusters());
  const std::vector<Fat16FsEntry> before = List(*browser, "/");

  ASSERT_EQ(WriteMessage(*browser, "/A.TXT", "new"), "");

  EXPECT_EQ(before[0].size, 1500u);
  EXPECT_EQ(List(*browser, "/")[0].size, 3u);
}

}  // namespace
}  // namespace quorbix::virtdisk::test
