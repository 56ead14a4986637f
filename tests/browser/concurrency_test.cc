#include <thread>

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

TEST(Concurrency, ConstOperations_MayRunAtTheSameTime) {
  auto image = ImageCrafter().Directory("D", 2).File("A", {.firstCluster = 3, .size = 5});
  image.Data(3, "hello").InCluster(2).File("B");
  const auto browser = Load(image);
  std::vector<std::thread> readers;

  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&browser] {
      for (int repetition = 0; repetition < 200; ++repetition) {
        EXPECT_EQ(ReadText(*browser, "/A"), "hello");
        EXPECT_EQ(ListPaths(*browser, "/D"), Names{"/D/B"});
        EXPECT_EQ(SearchPaths(*browser, "b"), Names{"/D/B"});
        EXPECT_EQ(browser->Info().sectorsPerCluster, 1);
      }
    });
  }

  for (std::thread& reader : readers) reader.join();
}

}  // namespace
}  // namespace quorbix::virtdisk::test
