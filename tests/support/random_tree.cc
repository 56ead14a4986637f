#include "support/random_tree.h"

#include <random>
#include <vector>

#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace fs = std::filesystem;

namespace {

class TreeMaker {
 public:
  TreeMaker(const fs::path& folder, const TreeShape& wanted)
      : root(folder), shape(wanted), random(wanted.seed) {}

  void Run() {
    fs::create_directories(root);
    std::vector<fs::path> directories{""};
    for (std::size_t i = 0; i < shape.directories; ++i) {
      directories.push_back(directories[Below(directories.size())] / Name(i));
      fs::create_directories(root / directories.back());
    }
    for (std::size_t i = 0; i < shape.files; ++i) {
      const fs::path rel = directories[Below(directories.size())] / Name(shape.directories + i);
      // With inner blanks, names come again.
      if (!fs::is_directory(root / rel)) WriteWholeFile(root / rel, Content(rel));
    }
    if (!shape.dotFiles) return;
    for (const char* name : {".profile", ".exrc"}) WriteWholeFile(root / name, Content(name));
  }

 private:
  std::size_t Below(std::size_t bound) { return random() % bound; }

  std::string Name(std::size_t number) {
    const std::string digits = std::to_string(number);
    switch (Below(6)) {
      case 0:
        return "f" + digits + ".dat";
      case 1:
        return "A Long Name, number " + digits + ".text";
      case 2:
        return "\xC3\xBC"
               "berl\xC3\xA4nge.v" +
               digits + ".tar.gz";
      case 3:
        return "NODOT" + digits;
      case 4:
        return "(" + digits + ")~{x}.!#$";
      default:
        // Upper and lower case of one name; the number keeps it short of 99 tails.
        return shape.innerBlanks ? (number % 2 != 0 ? "ab" : "AB") + std::string(1, '.') + "t" +
                                       std::string(1, static_cast<char>('a' + number % 20))
                                 : "x" + digits + "y";
    }
  }

  std::string Content(const fs::path& rel) {
    if (Below(8) == 0) return {};
    std::string content = rel.string() + "\n";
    const std::size_t size = content.size() + Below(shape.mostBytes);
    while (content.size() < size) {
      const auto word = random();
      content.append(reinterpret_cast<const char*>(&word), 4);
    }
    content.resize(size);
    return content;
  }

  fs::path root;
  TreeShape shape;
  std::mt19937 random;
};

}  // namespace

void MakeRandomTree(const fs::path& root, const TreeShape& shape) { TreeMaker(root, shape).Run(); }

TreeSummary Summarize(const fs::path& root) {
  TreeSummary summary;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_directory()) {
      ++summary.directories;
      continue;
    }
    ++summary.files;
    const std::string content = ReadWholeFile(entry.path());
    if (!content.empty()) summary.contents[content.substr(0, content.find('\n'))] = content;
  }
  return summary;
}

}  // namespace quorbix::virtdisk::test
