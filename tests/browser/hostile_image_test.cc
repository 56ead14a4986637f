// Images made to exhaust the reader: deep nesting, shared chains, directories that show the same
// slots again and again. Each finishes, with the answer that any other image would get.

#include <pthread.h>

#include <chrono>
#include <functional>

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

constexpr std::uint16_t kDepth = 20000;

// Runs `body` on a thread whose whole stack is 1 MiB.
void OnSmallStack(std::function<void()> body) {
  pthread_attr_t attributes;
  pthread_t thread;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{1} << 20), 0);
  const auto run = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

// D/D/D and so on, `depth` directories, the last one holding END.TXT.
Bytes NestedDirectories(std::uint16_t depth) {
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = depth + 10u});
  image.Directory("D", 2);
  for (unsigned i = 2; i <= depth; ++i) {
    image.InCluster(static_cast<std::uint16_t>(i))
        .Directory("D", static_cast<std::uint16_t>(i + 1));
  }
  const auto last = static_cast<std::uint16_t>(depth + 1);
  const auto data = static_cast<std::uint16_t>(depth + 2);
  image.InCluster(last).File("END.TXT", {.firstCluster = data, .size = 3}).Data(data, "end");
  return image.Bytes();
}

std::string NestedPath(std::size_t depth) {
  std::string path;
  for (std::size_t i = 0; i < depth; ++i) path += "/D";
  return path;
}

TEST(HostileImage, DirectoriesNested20000Deep_LoadOnASmallStack) {
  const Bytes image = NestedDirectories(kDepth);

  OnSmallStack([&] {
    const auto browser = Load(image);
    EXPECT_EQ(ReadText(*browser, NestedPath(kDepth) + "/END.TXT"), "end");
    EXPECT_EQ(ListPaths(*browser, NestedPath(kDepth - 1)), Names{NestedPath(kDepth)});
    EXPECT_EQ(SearchPaths(*browser, "/end.t"), Names{NestedPath(kDepth) + "/END.TXT"});
  });
}

TEST(HostileImage, DirectoriesNestedAsDeepAsAVolumeCan_Load) {
  // With paths kept as strings this index would take more than 12 GB.
  const Bytes image = NestedDirectories(65000);

  const auto browser = Load(image);

  EXPECT_THAT(SearchPaths(*browser, "END"), testing::SizeIs(1));
  EXPECT_THAT(ListPaths(*browser, "/d/d/d"), testing::ElementsAre("/D/D/D/D"));
}

TEST(HostileImage, LongQueryThatNearlyMatchesEverywhere_IsAnsweredQuickly) {
  // Were every start in every path tried, this would be 10 million million steps.
  const auto browser = Load(NestedDirectories(60000));
  std::string query;
  for (int i = 0; i < 30000; ++i) query += "d/";

  EXPECT_THAT(SearchPaths(*browser, query + "x"), testing::IsEmpty());
}

TEST(HostileImage, QueryAsLongAsTheLongestPath_FindsIt) {
  const auto browser = Load(NestedDirectories(kDepth));
  const std::string longest = NestedPath(kDepth) + "/END.TXT";

  EXPECT_EQ(SearchPaths(*browser, longest), Names{longest});
  EXPECT_THAT(SearchPaths(*browser, longest + "/"), testing::IsEmpty());
  EXPECT_THAT(SearchPaths(*browser, "/" + longest), testing::IsEmpty());
}

TEST(HostileImage, BrokenDirectoryAtTheBottom_FailsTheDeepLoad) {
  Bytes image = NestedDirectories(kDepth);
  ImageCrafter where({.sectorsPerFat = 256, .clusters = 1});
  const std::size_t slot = where.ClusterOffset(kDepth + 1);
  image[slot + 11] = 0x10;  // END.TXT becomes a directory
  image[slot + 26] = 0xF0;
  image[slot + 27] = 0xFF;

  EXPECT_EQ(LoadMessage(image), "cluster offset out of range");
}

TEST(HostileImage, ThousandsOfEntriesOnOneLongChain_LoadQuickly) {
  // 30,000 files that each begin in a chain of 60,000 clusters. Followed one by one these are 1.8
  // thousand million steps for each load; here they are so few that the test's limit is no matter.
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = 65000});
  image.Chain(Clusters(2, 60001)).Directory("D", 60002).Chain(Clusters(60002, 61876));
  image.InCluster(60002);
  std::size_t slot = image.ClusterOffset(60002);
  for (unsigned i = 0; i < 30000; ++i, slot += 32) {
    const std::string name = PaddedName("F" + std::to_string(i));
    for (std::size_t k = 0; k < 11; ++k) image.Byte(slot + k, static_cast<std::uint8_t>(name[k]));
    image.U32(slot + 11, 0x20).U32(slot + 15, 0).U32(slot + 19, 0).U16(slot + 23, 0);
    image.Byte(slot + 25, 0).U16(slot + 26, static_cast<std::uint16_t>(2 + i % 100));
    image.U32(slot + 28, 0xFFFFFFFF);
  }
  Fat16FsImage browser;
  const auto start = std::chrono::steady_clock::now();

  for (int repetition = 0; repetition < 10; ++repetition) {
    ASSERT_EQ(LoadMessage(browser, image.Bytes()), "");
  }

  RecordProperty("load_ms", std::to_string((std::chrono::steady_clock::now() - start) /
                                           std::chrono::milliseconds(1) / 10));
  EXPECT_THAT(ListPaths(browser, "/D"), testing::SizeIs(30000));
  EXPECT_EQ(ReadText(browser, "/D/F7").size(), (60000u - 7) * 512);
}

TEST(HostileImage, ThousandsOfEntriesOnOneLoop_Load) {
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = 65000});
  image.Chain(Clusters(2, 60001)).FatWord(60001, 2).Directory("D", 60002);
  image.Chain(Clusters(60002, 60189)).InCluster(60002);
  for (unsigned i = 0; i < 3000; ++i) {
    image.File("F" + std::to_string(i), {.firstCluster = static_cast<std::uint16_t>(i + 2)});
  }
  const auto browser = Load(image);

  EXPECT_THAT(ListPaths(*browser, "/D"), testing::SizeIs(3000));
  EXPECT_EQ(WriteMessage(*browser, "/D/F9", ""), "cluster loop detected");
}

// The clusters 2 to 91 are one chain, and every one of them is the first of a directory, too. Each
// directory shows the slots of all clusters after its first: 90 * 91 / 2 * 16 visits.
ImageCrafter OverlappingDirectories(unsigned clusters) {
  auto image = ImageCrafter({.clusters = clusters});
  image.Chain(Clusters(2, clusters + 1)).Directory("D", 2);
  for (unsigned i = 2; i <= clusters + 1; ++i) {
    image.FatWord(static_cast<std::uint16_t>(i), 0).InCluster(static_cast<std::uint16_t>(i));
    if (i <= clusters) image.Directory("D", static_cast<std::uint16_t>(i + 1));
    for (int k = 0; k < 14; ++k) image.File("F" + std::to_string(k));
  }
  return image.Chain(Clusters(2, clusters + 1));
}

TEST(HostileImage, OverlappingDirectories_AreStoppedAtTheNumberOfSlots) {
  const auto image = OverlappingDirectories(90);
  Fat16FsImage browser;

  EXPECT_EQ(LoadMessage(browser, image.Bytes()), "cluster loop detected");
  EXPECT_LE(AllPaths(browser).size(), image.Bytes().size() / 32);
  EXPECT_GE(AllPaths(browser).size(), image.Bytes().size() / 32 / 2);
}

// 96 slots: boot sector, FAT, root and the clusters 2 to 4. Three directories begin in 4, in 3 and
// in 2 and go on to 4, which has 13 slots of some kind: 14 visits three times, 16 twice, 16 once.
// The root adds its directories, its files and its end.
ImageCrafter ImageOf96Slots(int filesInRoot, const SlotMaker& putSlot) {
  auto image = ImageCrafter({.partitioned = false, .fatCount = 1, .clusters = 3});
  image.Directory("ONE", 4).Directory("TWO", 3).Directory("THREE", 2);
  for (int i = 0; i < filesInRoot; ++i) image.File("R" + std::to_string(i));
  for (const std::uint16_t cluster : Words{2, 3, 4}) {
    image.InCluster(cluster);
    for (int i = 0; i < 13; ++i) putSlot(image);
    for (int i = 0; i < 3 && cluster != 4; ++i) image.File("F" + std::to_string(i));
  }
  return image.Chain({2, 3, 4});
}

// What a slot holds makes no difference to what a visit costs.
TEST(HostileImage, AsManyVisitsAsSlots_AreAllowed) {
  for (const auto& [kind, putSlot] : SlotsOfEveryKind()) {
    const Bytes image = ImageOf96Slots(2, putSlot).Bytes();
    ASSERT_EQ(image.size(), 96u * 32);
    EXPECT_EQ(LoadMessage(image), "") << kind;
  }
}

TEST(HostileImage, OneVisitMoreThanSlots_IsRefused) {
  for (const auto& [kind, putSlot] : SlotsOfEveryKind()) {
    EXPECT_EQ(LoadMessage(ImageOf96Slots(3, putSlot).Bytes()), "cluster loop detected") << kind;
  }
}

TEST(HostileImage, RootBeyond4GiB_IsNotSoughtAtItsRemainder) {
  // The root is said to begin at sector 2^23 + 4: 4 GiB after the place where it does.
  auto image = ImageCrafter().File("A.TXT");
  image.U16(512 + 14, 131).Byte(512 + 16, 128).U16(512 + 22, 65535);
  Fat16FsImage browser;

  EXPECT_EQ(LoadMessage(browser, image.Bytes()), "directory block out of range");

  EXPECT_EQ(browser.Info().rootDirStartSector, 0x00800004u);
  EXPECT_TRUE(AllPaths(browser).empty());
}

TEST(HostileImage, ClusterBeyond4GiB_IsNotSoughtAtItsRemainder) {
  // Cluster 32,899 of 255 sectors lies 4 GiB and 127 sectors after cluster 2.
  auto image = ImageCrafter({.sectorsPerCluster = 255, .clusters = 3});
  image.File("A", {.firstCluster = 32899, .size = 9}).Directory("D", 32899);
  Fat16FsImage browser;

  EXPECT_EQ(LoadMessage(browser, image.Bytes()), "cluster offset out of range");

  EXPECT_EQ(ReadMessage(browser, "/A"), "cluster offset out of range");
}

TEST(HostileImage, MoreThan65536Entries_KeepTheirNumbersApart) {
  // 32,768 bytes a cluster; LONG takes 66,000 slots, LATER comes after them.
  auto image = ImageCrafter({.sectorsPerCluster = 64});
  image.Directory("LONG", 2).Directory("LATER", 80).Chain(Clusters(2, 66)).InCluster(2);
  for (int i = 0; i < 66000; ++i) image.File("F" + std::to_string(i));
  image.InCluster(80).File("A.TXT", {.firstCluster = 81, .size = 3}).Data(81, "abc");
  const auto browser = Load(image);

  EXPECT_THAT(AllPaths(*browser), testing::SizeIs(66003));
  EXPECT_EQ(ListPaths(*browser, "/LATER"), Names{"/LATER/A.TXT"});
  EXPECT_EQ(SearchPaths(*browser, "A.TXT"), Names{"/LATER/A.TXT"});
  EXPECT_EQ(ReadText(*browser, "/later/a.txt"), "abc");
  EXPECT_EQ(ReadText(*browser, "/long/f0"), "");
  EXPECT_EQ(WriteMessage(*browser, "/LATER/A.TXT", "xyz"), "");
  EXPECT_EQ(ReadText(*browser, "/LATER/A.TXT"), "xyz");
}

TEST(HostileImage, EverySlotOfALargeImage_IsVisitedWithoutMeetingTheBound) {
  auto image = ImageCrafter({.partitioned = false, .fatCount = 1, .clusters = 200});
  image.Directory("D", 2).Chain(Clusters(2, 201)).InCluster(2);
  for (unsigned i = 0; i < 200 * 16; ++i) image.File("F" + std::to_string(i));

  EXPECT_THAT(ListPaths(*Load(image), "/D"), testing::SizeIs(3200));
}

TEST(HostileImage, ManyDirectoriesOfOneKey_List) {
  // The same name in both cases, ten directories each, all with one file in them.
  auto image = ImageCrafter({.rootEntryCount = 32});
  for (std::uint16_t i = 0; i < 20; ++i) {
    image.InRoot().Directory(i % 2 == 0 ? "SAME" : "same", static_cast<std::uint16_t>(2 + i));
    image.InCluster(static_cast<std::uint16_t>(2 + i)).File("A");
  }

  EXPECT_THAT(ListPaths(*Load(image), "/same"), testing::SizeIs(20));
}

TEST(HostileImage, EveryPrefixOfAnImage_LoadsOrFailsCleanly) {
  auto image =
      ImageCrafter({.clusters = 4}).Directory("D", 2).File("A", {.firstCluster = 4, .size = 9});
  image.InCluster(2).File("B", {.firstCluster = 5, .size = 900}).Chain({4, 5}).Chain({2, 3});
  Fat16FsImage browser;
  for (std::size_t length = 0; length <= image.Bytes().size(); ++length) {
    const Bytes prefix(image.Bytes().begin(),
                       image.Bytes().begin() + static_cast<std::ptrdiff_t>(length));
    LoadMessage(browser, prefix);
    Bytes content;
    std::string err;
    browser.ReadFile("/A", content, err);
    EXPECT_LE(content.size(), 9u);
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::test
