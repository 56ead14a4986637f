#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "browser/path_text.h"
#include "commands/commands.h"
#include "common/ascii.h"
#include "disk/image_tree.h"
#include "disk/opened_image.h"
#include "terminal/columns.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::size_t kMostIndented = 64;  // deeper levels stay below one another
constexpr std::size_t kTop = static_cast<std::size_t>(-1);

struct Branch {
  const Fat16FsEntry* entry = nullptr;
  std::size_t parent = kTop;
  bool isLast = true;  // of its directory
  std::uint64_t bytes = 0;
};

// Everything below `path`, with what each directory holds in all.
std::vector<Branch> Branches(const ImageTree& tree, const std::string& path) {
  std::vector<Branch> branches;
  std::unordered_map<std::string, std::size_t> directories;  // by path key
  std::unordered_map<std::size_t, std::size_t> lastIn;       // by directory
  const std::string top = internal::NormalizePath(path);
  for (const Fat16FsEntry* entry : tree.Below(path)) {
    const std::size_t number = branches.size();
    const std::string parentKey = internal::NormalizePath(ParentPath(*entry));
    const std::size_t parent = parentKey == top ? kTop : directories.at(parentKey);
    if (entry->isDirectory) directories.try_emplace(internal::NormalizePath(entry->path), number);
    const auto [last, isFirst] = lastIn.try_emplace(parent, number);
    if (!isFirst) branches[last->second].isLast = false;
    last->second = number;
    branches.push_back({entry, parent, true, entry->isDirectory ? 0 : entry->size});
  }
  // What is in a directory comes after it.
  for (std::size_t i = branches.size(); i-- > 0;) {
    if (branches[i].parent != kTop) branches[branches[i].parent].bytes += branches[i].bytes;
  }
  return branches;
}

struct Lines {
  const char* past;    // the directory above goes on
  const char* beside;  // and here is one of its entries
  const char* last;    // here is its last one
};
constexpr Lines kPlainLines{"|   ", "|-- ", "`-- "};
constexpr Lines kDrawnLines{"\xE2\x94\x82   ", "\xE2\x94\x9C\xE2\x94\x80\xE2\x94\x80 ",
                            "\xE2\x94\x94\xE2\x94\x80\xE2\x94\x80 "};

// Of a name such as "de_DE.UTF-8@euro", where the letter case and the dash may differ.
bool NamesUtf8(std::string_view locale) {
  locale = locale.substr(0, locale.find('@'));
  std::string charset;
  for (const char c : locale.substr(std::min(locale.find('.'), locale.size()))) {
    if (c != '-' && c != '.') charset += internal::ToAsciiUpper(c);
  }
  return charset == "UTF8";
}

bool LocaleIsUtf8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') continue;
    return NamesUtf8(value);
  }
  return false;
}

std::string Indent(const std::vector<Branch>& branches, std::size_t number, const Lines& lines) {
  std::vector<const char*> parts{branches[number].isLast ? lines.last : lines.beside};
  for (std::size_t i = branches[number].parent; i != kTop && parts.size() < kMostIndented;
       i = branches[i].parent) {
    parts.push_back(branches[i].isLast ? "    " : lines.past);
  }
  std::string indent;
  for (std::size_t i = parts.size(); i-- > 0;) indent += parts[i];
  return indent;
}

std::string SizeColumn(std::uint64_t bytes) {
  constexpr std::size_t kWidth = 11;  // "1,023 bytes"
  return AlignRight(FormatBytes(bytes), kWidth) + "  ";
}

void Draw(Console& console, const std::vector<Branch>& branches, const std::string& top) {
  const Lines& lines = LocaleIsUtf8() ? kDrawnLines : kPlainLines;
  std::uint64_t bytes = 0;
  std::uint64_t directories = 0;
  for (const Branch& branch : branches) {
    if (branch.parent == kTop) bytes += branch.bytes;
    if (branch.entry->isDirectory) ++directories;
  }
  console.out << SizeColumn(bytes) << Printable(top) << "\n";
  for (std::size_t i = 0; i < branches.size(); ++i) {
    const Fat16FsEntry& entry = *branches[i].entry;
    const std::string name = Printable(entry.name);
    console.out << SizeColumn(branches[i].bytes) << Indent(branches, i, lines)
                << (entry.isDirectory ? ShownDirectory(name, console.colour) : name) << "\n";
  }
  console.out << "\n"
              << Count(directories, "directory", "directories") << ", "
              << Count(branches.size() - directories, "file", "files") << "\n";
}

}  // namespace

int RunTree(Console& console, const TreeOptions& options) {
  int status = kDone;
  const auto image =
      OpenedImage::Open(console, options.image, {options.force, options.all}, status);
  if (!image) return status;
  if (options.all) image->TellHiddenLeftOut(console);
  const ImageTree tree = image->Tree(console);
  if (!tree.IsDirectory(options.path)) {
    return Fail(
        console, "directory not found",
        Within(options.path, options.image) + ": `virtdisk tree IMAGE` shows all there are.");
  }
  const std::vector<Branch> branches = Branches(tree, options.path);
  if (!options.json) {
    Draw(console, branches, options.path);
    return kDone;
  }
  for (const Branch& branch : branches) {
    Json record = EntryRecord(*branch.entry, tree.IsHidden(*branch.entry));
    record["bytes"] = branch.bytes;
    console.out << OneLine(record) << "\n";
  }
  return kDone;
}

}  // namespace quorbix::virtdisk::tool
