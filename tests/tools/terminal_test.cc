#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/image_crafter.h"
#include "support/temp_folder.h"
#include "terminal_run.h"

// The built program on a terminal.

namespace quorbix::virtdisk::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// What the program shows on a terminal of so many columns; NO_COLOR as given, or not set.
std::string ShowOnTerminal(std::vector<std::string> arguments, unsigned short columns,
                           const char* noColour = nullptr) {
  return RunOnTerminal(std::move(arguments), {.columns = columns, .noColour = noColour}).shown;
}

class Terminal : public ::testing::Test {
 protected:
  Terminal() {
    ImageCrafter crafter;
    crafter.Directory("SUB", 2).Chain({2}).InCluster(2);
    WriteBytes(folder / "disk.img", crafter.Bytes());
  }

  std::string Image() const { return (folder / "disk.img").string(); }

  TempFolder folder;
};

TEST_F(Terminal, Listing_IsColoured) {
  EXPECT_THAT(ShowOnTerminal({"ls", Image()}, 80), HasSubstr("\x1b[1;34mSUB\x1b[0m/"));
}

TEST_F(Terminal, NoColor_LeavesColourOut) {
  EXPECT_THAT(ShowOnTerminal({"ls", Image()}, 80, "1"), Not(HasSubstr("\x1b")));
  EXPECT_THAT(ShowOnTerminal({"map", Image()}, 80, "1"), Not(HasSubstr("\x1b")));
}

TEST_F(Terminal, Map_TakesTheTerminalsWidth) {
  std::istringstream lines(ShowOnTerminal({"map", Image()}, 42, "1"));
  std::size_t widest = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("  ", 0) == 0) widest = std::max(widest, line.find_last_not_of("\r\n") + 1);
  }
  EXPECT_EQ(widest, 42U);
}

}  // namespace
}  // namespace quorbix::virtdisk::test
