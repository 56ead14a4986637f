// The page of a map, in a browser: its scripts run, a cell tells its file, a file lights its cells.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "disk/map_html.h"
#include "map_fixture.h"
#include "program_run.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::ImageCrafter;
using test::RunVirtdisk;
using test::TempFolder;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

// LARGE.BIN in clusters 2, 3 and 9, SMALL.TXT in 5, and the directory SUB in 11.
ImageCrafter PageDisk() {
  ImageCrafter crafter({.clusters = 60});
  crafter.File("LARGE.BIN", {.firstCluster = 2, .size = 1200}).Chain({2, 3, 9});
  crafter.File("SMALL.TXT", {.firstCluster = 5, .size = 3}).Chain({5});
  crafter.Directory("SUB", 11).Chain({11}).InCluster(11).DotEntries(11, 0);
  return crafter;
}

std::string Page() { return DrawHtml(Map(PageDisk()), "DISK", "disk.img"); }

TEST(DrawHtml, Page_NeedsNothingFromElsewhere) {
  const std::string page = Page();
  for (const char* reference : {"http:", "https:", " src=", "@import", "fetch(", "<link"}) {
    EXPECT_THAT(page, Not(HasSubstr(reference))) << reference;
  }
}

TEST(DrawHtml, NamesWithMarkup_StayNames) {
  ImageCrafter crafter;
  crafter.RawSlot("</SCRIP>T  ", {.firstCluster = 2, .size = 12}).Chain({2});
  const std::string page = DrawHtml(Map(crafter), "</title><script>", "<b>");
  EXPECT_THAT(page, Not(HasSubstr("</SCRIP>")));
  EXPECT_THAT(page, HasSubstr("\\u003c/SCRIP>"));
  EXPECT_THAT(page, HasSubstr("&lt;/title&gt;&lt;script&gt;"));
  EXPECT_THAT(page, Not(HasSubstr("<b>")));
}

TEST(DrawHtml, EmptyDisk_IsAPageToo) {
  const std::string page = DrawHtml(DiskMap(), "", "");
  EXPECT_THAT(page, ::testing::StartsWith("<!DOCTYPE html>"));
  EXPECT_THAT(page, Not(HasSubstr("nan")));
}

TEST(MapCommandForAPage, FileThatEndsInHtml_IsAPage) {
  TempFolder folder;
  test::WriteBytes(folder / "disk.img", PageDisk().Bytes());
  const std::string disk = (folder / "disk.img").string();
  EXPECT_EQ(RunVirtdisk({"map", disk, "-o", (folder / "disk.HTML").string()}).status, 0);
  EXPECT_THAT(folder.Read("disk.HTML"), ::testing::StartsWith("<!DOCTYPE html>"));
}

TEST(MapCommandForPrograms, Json_HasEveryOwnerWithItsRuns) {
  TempFolder folder;
  test::WriteBytes(folder / "disk.img", PageDisk().Bytes());
  const auto record = RunVirtdisk({"map", (folder / "disk.img").string(), "--json"}).Json();
  EXPECT_EQ(record["clusters"], 60);
  EXPECT_EQ(record["inFiles"], 4);
  EXPECT_EQ(record["inDirectories"], 1);
  EXPECT_EQ(record["owners"][0]["path"], "/LARGE.BIN");
  EXPECT_EQ(record["owners"][0]["runs"], nlohmann::json::parse("[[2,2],[9,1]]"));
}

class MapPage : public ::testing::Test {
 protected:
  void SetUp() override {
    // Large, and so no part of what everybody installs to test.
    if (test::RunCommand({"chromium", "--version"}).status != 127) return;
    if (std::getenv("CI") != nullptr) FAIL() << "chromium is missing";
    GTEST_SKIP() << "chromium is missing: scripts/setup ci installs it";
  }

  // What the page looks like to a program after `script` ran in it; what `script` gives to `say`
  // is the title.
  std::string After(const std::string& script, const std::string& address = "",
                    std::string page = Page()) {
    page.insert(page.rfind("</body>"),
                "<script>const say = (text) => { document.title = text; };"
                "const key = (name) => document.getElementById('map').dispatchEvent("
                "new KeyboardEvent('keydown', {key: name, bubbles: true, cancelable: true}));"
                "const told = () => document.getElementById('told').textContent;"
                "try {" +
                    script + "} catch (error) { say('failed: ' + error); }</script>");
    test::WriteWholeFile(folder / "page.html", page);
    const test::CommandResult result = test::RunCommand(
        {"chromium", "--headless", "--no-sandbox", "--disable-gpu",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--no-first-run", "--dump-dom", "--user-data-dir=" + (folder / "profile").string(),
         "file://" + (folder / "page.html").string() + address});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
  }

  std::string Said(const std::string& script, const std::string& address = "",
                   const std::string& page = Page()) {
    const std::string dom = After(script, address, page);
    const std::size_t begin = dom.find("<title>") + 7;
    return dom.substr(begin, dom.find("</title>") - begin);
  }

  TempFolder folder;
};

// The picture has 4 cells of boot sector and FATs and 1 of the root in front of cluster 2.
TEST_F(MapPage, ArrowKeys_MoveFromCellToCellAndTellIt) {
  EXPECT_EQ(Said("for (let i = 0; i < 6; ++i) key('ArrowRight'); say(told());"),
            "Cell 6 of 65, cluster 2\n/LARGE.BIN\n1,200 bytes, 3 clusters in 2 parts: 2-3, 9");
  EXPECT_EQ(Said("key('Home'); key('ArrowLeft'); say(told());"), "Cell 1 of 65\nboot and FATs");
  EXPECT_EQ(Said("key('End'); say(told());"), "Cell 65 of 65, cluster 61\nfree");
}

TEST_F(MapPage, Enter_LightsTheFileAndEscapeLetsGo) {
  const std::string script =
      "for (let i = 0; i < 6; ++i) key('ArrowRight'); key('Enter');"
      "const lit = () => [...document.querySelectorAll('.lit')].map((g) => g.dataset.owner).join()"
      " + ':' + document.querySelectorAll('[aria-pressed=true] span').length;"
      "const before = lit(); key('Escape'); say(before + ' then ' + lit());";
  EXPECT_EQ(Said(script), "0:1 then :0");
}

// Two bars: clusters 2 and 3 side by side, and 9.
TEST_F(MapPage, FileOfTheList_LightsItsCells) {
  EXPECT_THAT(Said("document.querySelector('#list button').click();"
                   "say(told() + ' ' + document.getElementById('lit').getAttribute('d'));"),
              MatchesRegex("/LARGE.BIN\n.* M[^z]*zM[^z]*z"));
}

TEST_F(MapPage, Search_NarrowsTheList) {
  EXPECT_EQ(Said("const search = document.getElementById('search'); search.value = 'small';"
                 "search.dispatchEvent(new Event('input'));"
                 "say(document.getElementById('found').textContent + ': ' +"
                 "[...document.querySelectorAll('#list span')].map((s) => s.textContent).join());"),
            "1 of 3: /SMALL.TXT");
}

TEST_F(MapPage, List_HasFilesBySize) {
  EXPECT_EQ(Said("say([...document.querySelectorAll('#list span')].map((s) => s.textContent)"
                 ".join());"),
            "/LARGE.BIN,/SMALL.TXT,/SUB");
}

TEST_F(MapPage, MouseOverACell_TellsIt) {
  EXPECT_THAT(Said("const box = document.getElementById('cells').getBoundingClientRect();"
                   "document.getElementById('map').dispatchEvent(new MouseEvent('mousemove',"
                   "{clientX: box.left + box.width / 28 * 8.5, clientY: box.top + 3}));"
                   "say(told());"),
              HasSubstr("cluster 5\n/SMALL.TXT\n3 bytes, 1 cluster in 1 part: 5"));
}

TEST_F(MapPage, AddressWithAPath_ChoosesTheFile) {
  EXPECT_THAT(Said("say(told());", "#/SMALL.TXT"), HasSubstr("/SMALL.TXT\n3 bytes"));
}

// F0 to F309, the largest first, in clusters 2 to 311.
std::string PageOf310Files() {
  ImageCrafter crafter({.rootEntryCount = 512, .sectorsPerFat = 2, .clusters = 400});
  for (std::uint16_t i = 0; i < 310; ++i) {
    const auto cluster = static_cast<std::uint16_t>(2 + i);
    crafter.File("F" + std::to_string(i), {.firstCluster = cluster, .size = 500u - i});
    crafter.Chain({cluster});
  }
  return DrawHtml(Map(crafter), "DISK", "disk.img");
}

// In this window, of 800 by 600, the list lies below the map.
TEST_F(MapPage, ChosenCell_ScrollsTheListAndNotThePage) {
  EXPECT_EQ(Said("key('End'); for (let i = 0; i < 100 + 89; ++i) key('ArrowLeft'); key('Enter');"
                 "const list = document.getElementById('list');"
                 "const button = list.querySelector('[aria-pressed=true]');"
                 "const box = list.getBoundingClientRect(), at = button.getBoundingClientRect();"
                 "say([button.querySelector('span').textContent, scrollY, list.scrollTop > 0,"
                 "at.top >= box.top && at.bottom <= box.bottom].join());",
                 "", PageOf310Files()),
            "/F210,0,true,true");
}

TEST_F(MapPage, ChosenCellAboveWhatTheListShows_ScrollsItBack) {
  EXPECT_EQ(Said("const list = document.getElementById('list');"
                 "list.scrollTop = list.scrollHeight;"
                 "key('Home'); for (let i = 0; i < 38; ++i) key('ArrowRight'); key('Enter');"
                 "const button = list.querySelector('[aria-pressed=true]');"
                 "const box = list.getBoundingClientRect(), at = button.getBoundingClientRect();"
                 "say([button.querySelector('span').textContent,"
                 "at.top >= box.top && at.bottom <= box.bottom].join());",
                 "", PageOf310Files()),
            "/F0,true");
}

TEST_F(MapPage, ChosenFileBeyondTheList_IsShownFirst) {
  EXPECT_EQ(Said("const names = [...document.querySelectorAll('#list button')];"
                 "say(names.length + ' ' + names[0].querySelector('span').textContent + ' ' +"
                 "names[0].getAttribute('aria-pressed'));",
                 "#/F309", PageOf310Files()),
            "301 /F309 true");
}

TEST_F(MapPage, ControlsHaveNamesForScreenReaders) {
  EXPECT_EQ(Said("const names = [document.getElementById('map').getAttribute('aria-label'),"
                 "document.querySelector('label[for=search]').textContent,"
                 "document.getElementById('told').getAttribute('role'),"
                 "document.getElementById('cells').getAttribute('aria-hidden'),"
                 "document.documentElement.lang]; say(names.join('|'));"),
            "Map of the clusters|Search in paths|status|true|en");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
