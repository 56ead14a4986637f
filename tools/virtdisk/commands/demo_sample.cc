#include "commands/demo_sample.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "host/names.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

struct SampleFile {
  const char* path;
  const char* content;
};

constexpr std::array<SampleFile, 6> kSample{{
    {"Readme.txt",
     "This disk belongs to the machine in the study.\n"
     "Please put it back into its sleeve after use.\n"},
    {"Notes.txt", "Monday: oil the drive door.\nTuesday: try the new tape cable.\n"},
    {"Letters/Aunt.txt",
     "Dear aunt,\n\nthe machine you gave me still runs every evening.\n\nYours\n"},
    {"Letters/Club.txt", "The club meets on Thursdays. Bring a disk and a power lead.\n"},
    {"Games/Scores.dat", "ANNA 41200\nBEN 38850\nCARLA 36100\n"},
    {"Games/Maze.bas",
     "10 REM A MAZE WITHOUT END\n20 PRINT CHR$(47 + INT(RND(1) * 2) * 45);\n30 GOTO 20\n"},
}};

// The name of an entry on the host under which a disk keeps it: a blank within it, which a numeric
// tail brings about, is not kept by every reader.
std::string NameOnBothSides(const std::string& shortName) {
  std::string name = ShownName(shortName);
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

struct FolderPair {
  fs::path from;
  fs::path to;
};

}  // namespace

void WriteSample(const fs::path& target) {
  for (const SampleFile& file : kSample) {
    const fs::path path = target / file.path;
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out << file.content;
    out.close();
    if (!out) {
      throw fs::filesystem_error("cannot write", path, std::make_error_code(std::errc::io_error));
    }
  }
}

void CopyUnderShortNames(const fs::path& source, const fs::path& target) {
  std::vector<FolderPair> pending{{source, target}};
  while (!pending.empty()) {
    const FolderPair folder = std::move(pending.back());
    pending.pop_back();
    fs::create_directories(folder.to);
    DirectoryNames names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.from)) {
      const std::string shortName = names.Take(entry.path().filename().string());
      const std::string name = shortName.empty() ? std::string() : NameOnBothSides(shortName);
      if (name.empty()) continue;
      if (entry.is_directory()) {
        pending.push_back({entry.path(), folder.to / name});
      } else if (entry.is_regular_file()) {
        fs::copy_file(entry.path(), folder.to / name, fs::copy_options::skip_existing);
      }
    }
  }
}

}  // namespace quorbix::virtdisk::tool
