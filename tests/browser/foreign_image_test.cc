// Images made by other people's tools: what mkfs.fat and mtools put on a disk is what the browser
// shows of it, and what the browser rewrites satisfies fsck.fat and mtools.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include "browser/browser_fixture.h"
#include "support/child_process.h"
#include "support/need_tool.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

struct DiskShape {
  const char* name;
  unsigned sectorsPerCluster;
  unsigned kib;          // of the volume; FAT16 begins at 4,085 clusters
  unsigned startSector;  // 0: a bare volume
};

void PrintTo(const DiskShape& shape, std::ostream* out) { *out << shape.name; }

std::string Tool(const std::vector<std::string>& arguments) {
  const CommandResult result = RunCommand(arguments);
  EXPECT_EQ(result.status, 0) << arguments[0] << ": " << result.err << result.out;
  return result.out;
}

std::string PseudoRandom(std::size_t length, std::uint32_t seed) {
  std::string text(length, '\0');
  for (char& c : text) {
    seed = seed * 1664525u + 1013904223u;
    c = static_cast<char>(seed >> 24);
  }
  return text;
}

// "2021-03-04 5:06", as mdir shows it.
std::string ShownTime(const Fat16FsEntry& entry) {
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %d:%02d", 1980 + (entry.writeDate >> 9),
                entry.writeDate >> 5 & 15, entry.writeDate & 31, entry.writeTime >> 11,
                entry.writeTime >> 5 & 63);
  return text;
}

std::string Shown(const Fat16FsEntry& entry) {
  return entry.name + " " + (entry.isDirectory ? "<DIR>" : std::to_string(entry.size)) + " " +
         ShownTime(entry);
}

std::string UpperCased(std::string text) {
  for (char& c : text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
  return text;
}

// The entries in mdir's table, in the form of Shown. Its columns: base in 0 to 7, extension in 9 to
// 11 (small letters stand for capitals with a case flag), then size or <DIR>, date and time.
Names EntriesOfMdir(const std::string& table) {
  Names entries;
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    if (line.size() < 40 || line[0] == ' ' || line[0] == '.' || line.find('-') == line.npos) {
      continue;
    }
    std::string base, extension, size, date, time;
    std::istringstream(line.substr(0, 8)) >> base;
    std::istringstream(line.substr(9, 3)) >> extension;
    std::istringstream(line.substr(12)) >> size >> date >> time;
    const std::string name = extension.empty() ? base : base + "." + extension;
    entries.push_back(UpperCased(name) + " " + size + " " + date + " " + time);
  }
  return entries;
}

class ForeignImage : public testing::TestWithParam<DiskShape> {
 protected:
  void SetUp() override {
    NEED_TOOL("mkfs.fat");
    NEED_TOOL("mdir");
    ::setenv("MTOOLS_SKIP_CHECK", "1", 1);
    Format();
    Populate();
    browser = Load(ReadBytes(folder / "disk.img"));
  }

  void Format() {
    const auto sectorsPerCluster = std::to_string(GetParam().sectorsPerCluster);
    Tool({"mkfs.fat", "-C", "-F", "16", "-s", sectorsPerCluster, "-n", "FOREIGN", "--offset",
          std::to_string(GetParam().startSector), (folder / "disk.img").string(),
          std::to_string(GetParam().kib)});
    if (GetParam().startSector != 0) WritePartitionTable();
  }

  void WritePartitionTable() {
    Bytes image = ReadBytes(folder / "disk.img");
    image[446 + 4] = 0x06;
    image[446 + 8] = static_cast<std::uint8_t>(GetParam().startSector & 0xFF);
    image[446 + 9] = static_cast<std::uint8_t>(GetParam().startSector >> 8);
    image[446 + 13] = 0xFF;
    image[510] = 0x55;
    image[511] = 0xAA;
    WriteBytes(folder / "disk.img", image);
  }

  // Long names, small letters, attributes, dates, a directory of several clusters, deleted entries,
  // and a file that was put into the hole left by one of them and goes on elsewhere.
  void Populate() {
    const std::size_t cluster = GetParam().sectorsPerCluster * 512u;
    Mtool({"mmd"}, {"::/DOCS", "::/DOCS/SUB"});
    Put({{"HOLE.BIN", PseudoRandom(2 * cluster, 1)}, {"WALL.BIN", PseudoRandom(cluster, 2)}},
        "::/");
    Mtool({"mdel"}, {"::/HOLE.BIN"});
    Put({{"SPLIT.BIN", PseudoRandom(5 * cluster + 77, 3)}}, "::/");
    Put({{"lower.txt", "small letters\n"}, {"A rather long name.txt", "long\n"}, {"EMPTY", ""}},
        "::/DOCS");
    std::map<std::string, std::string> many;
    for (int i = 0; i < 70; ++i) {
      many["FILE" + std::to_string(i) + ".TXT"] = std::string(static_cast<std::size_t>(i), 'x');
    }
    Put(many, "::/DOCS/SUB");
    Mtool({"mdel"}, {"::/DOCS/SUB/FILE7.TXT", "::/DOCS/SUB/FILE0.TXT", "::/DOCS/SUB/FILE?8.TXT"});
    Mtool({"mattrib", "+h", "+r", "+s"}, {"::/WALL.BIN"});
  }

  // Copies host files of these names and contents to the disk, each with a date of its own.
  void Put(const std::map<std::string, std::string>& files, const std::string& where) {
    std::vector<std::string> arguments;
    for (const auto& [name, content] : files) {
      folder.File(name, content);
      const std::chrono::sys_seconds stamp =
          std::chrono::sys_days(std::chrono::year(2021) / 3 / 4) +
          std::chrono::hours(7 * (content.size() % 5000)) + std::chrono::minutes(11);
      std::filesystem::last_write_time(folder / name, std::chrono::file_clock::from_sys(stamp));
      arguments.push_back((folder / name).string());
    }
    arguments.push_back(where);
    Mtool({"mcopy", "-m"}, arguments);
  }

  // An mtools command on the disk as it is on the host.
  std::string Mtool(std::vector<std::string> command, const std::vector<std::string>& arguments) {
    const auto offset = std::to_string(std::size_t{GetParam().startSector} * 512);
    command.insert(command.begin() + 1, {"-i", (folder / "disk.img").string() + "@@" + offset});
    command.insert(command.end(), arguments.begin(), arguments.end());
    return Tool(command);
  }

  std::string ForeignContent(const std::string& path) {
    Mtool({"mcopy", "-n"}, {"::" + path, (folder / "copied").string()});
    const std::string content = ReadWholeFile(folder / "copied");
    folder.Remove("copied");
    return content;
  }

  void ExpectCleanVolume() {
    const Bytes image = ReadBytes(folder / "disk.img");
    const auto start = static_cast<std::ptrdiff_t>(GetParam().startSector) * 512;
    WriteBytes(folder / "volume.img", Bytes(image.begin() + start, image.end()));
    const CommandResult check = RunCommand({"fsck.fat", "-n", (folder / "volume.img").string()});
    EXPECT_EQ(check.status, 0) << check.out << check.err;
  }

  TempFolder folder;
  std::unique_ptr<Fat16FsImage> browser;
};

TEST_P(ForeignImage, Info_TellsTheVolume) {
  EXPECT_EQ(browser->Info().volumeLabel, "FOREIGN");
  EXPECT_EQ(browser->Info().fileSystemType, "FAT16");
  EXPECT_EQ(browser->Info().partitioned, GetParam().startSector != 0);
  EXPECT_EQ(browser->Info().volumeOffset, GetParam().startSector * 512u);
  EXPECT_EQ(browser->Info().sectorsPerCluster, GetParam().sectorsPerCluster);
}

TEST_P(ForeignImage, EveryDirectory_ListsWhatMdirShows) {
  for (const std::string path : {"/", "/DOCS", "/DOCS/SUB"}) {
    Names shown;
    for (const Fat16FsEntry& entry : List(*browser, path)) shown.push_back(Shown(entry));

    EXPECT_THAT(shown, testing::UnorderedElementsAreArray(
                           EntriesOfMdir(Mtool({"mdir", "-a"}, {"::" + path}))))
        << path;
  }
  EXPECT_THAT(ListPaths(*browser, "/"), testing::ElementsAre("/DOCS", "/SPLIT.BIN", "/WALL.BIN"));
  EXPECT_THAT(ListPaths(*browser, "/DOCS/SUB"), testing::SizeIs(62));
}

TEST_P(ForeignImage, EveryFile_ReadsAsMcopyReadsIt) {
  for (const std::string path : {"/SPLIT.BIN", "/WALL.BIN", "/DOCS/LOWER.TXT", "/DOCS/ARATHE~1.TXT",
                                 "/DOCS/EMPTY", "/DOCS/SUB/FILE1.TXT", "/DOCS/SUB/FILE69.TXT"}) {
    EXPECT_EQ(ReadText(*browser, path), ForeignContent(path)) << path;
  }
  EXPECT_EQ(ReadText(*browser, "/SPLIT.BIN"),
            PseudoRandom(5 * GetParam().sectorsPerCluster * 512u + 77, 3));
  EXPECT_EQ(ReadText(*browser, "/DOCS/ARATHE~1.TXT"), "long\n");
}

TEST_P(ForeignImage, SplitFile_IsInFactFragmented) {
  const Fat16FsInfo& info = browser->Info();
  const Bytes& image = browser->ImageBytes();
  std::size_t cluster = EntryAt(*browser, "/SPLIT.BIN").firstCluster;
  bool jumped = false;
  for (int i = 0; i < 5; ++i) {
    const std::size_t word = info.fatStartSector * 512u + 2 * cluster;
    const std::size_t next = image[word] + 256u * image[word + 1];
    jumped = jumped || next != cluster + 1;
    cluster = next;
  }
  EXPECT_TRUE(jumped);
}

TEST_P(ForeignImage, Attributes_AreThoseThatMattribSet) {
  EXPECT_EQ(EntryAt(*browser, "/WALL.BIN").attributes, 0x27);
  EXPECT_EQ(EntryAt(*browser, "/DOCS").attributes, 0x10);
}

TEST_P(ForeignImage, Rewrites_KeepTheVolumeCleanAndReadByMcopy) {
  const std::string split = PseudoRandom(6 * GetParam().sectorsPerCluster * 512u, 9);

  EXPECT_EQ(WriteMessage(*browser, "/SPLIT.BIN", split), "");
  EXPECT_EQ(WriteMessage(*browser, "/WALL.BIN", "short"), "");
  EXPECT_EQ(WriteMessage(*browser, "/DOCS/SUB/FILE69.TXT", std::string(512, 'z')), "");
  EXPECT_EQ(WriteMessage(*browser, "/DOCS/EMPTY", ""), "");
  WriteBytes(folder / "disk.img", browser->ImageBytes());

  ExpectCleanVolume();
  EXPECT_EQ(ForeignContent("/SPLIT.BIN"), split);
  EXPECT_EQ(ForeignContent("/WALL.BIN"), "short");
  EXPECT_EQ(ForeignContent("/DOCS/SUB/FILE69.TXT"), std::string(512, 'z'));
  EXPECT_EQ(ForeignContent("/DOCS/LOWER.TXT"), "small letters\n");
}

TEST_P(ForeignImage, EveryFileRewrittenWithItsOwnContent_ChangesNothingButSlack) {
  const Names paths = AllPaths(*browser);
  std::map<std::string, std::string> before;
  for (const std::string& path : paths) {
    if (!EntryAt(*browser, path).isDirectory) before[path] = ReadText(*browser, path);
  }

  for (const auto& [path, content] : before) {
    EXPECT_EQ(WriteMessage(*browser, path, content), "") << path;
  }
  WriteBytes(folder / "disk.img", browser->ImageBytes());

  ExpectCleanVolume();
  EXPECT_EQ(AllPaths(*browser), paths);
  for (const auto& [path, content] : before) EXPECT_EQ(ReadText(*browser, path), content) << path;
}

INSTANTIATE_TEST_SUITE_P(Disks, ForeignImage,
                         testing::Values(DiskShape{"Bare512", 1, 4096, 0},
                                         DiskShape{"Bare2K", 4, 12000, 0},
                                         DiskShape{"Partitioned512", 1, 4096, 63},
                                         DiskShape{"Partitioned8K", 16, 36000, 2048}),
                         [](const auto& disk) { return std::string(disk.param.name); });

}  // namespace
}  // namespace quorbix::virtdisk::test
