#include "guard/host_names.h"

#include <cstddef>
#include <optional>

#include "common/ascii.h"
#include "guard/model.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr char kMark[] = "disk";
constexpr char kMarkBegins[] = " (disk ";
constexpr std::size_t kLongestName = 255;  // bytes, of the usual file systems
// What is longer behind a dot is no extension but the rest of a title, and may be cut.
constexpr std::size_t kLongestExtension = 32;

// Where the mark goes: before the extension, and behind a name that begins with its only dot.
std::size_t ExtensionOf(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  const bool isNone =
      dot == std::string::npos || dot == 0 || name.size() - dot - 1 > kLongestExtension;
  return isNone ? name.size() : dot;
}

// The beginning of a text, of at most `size` bytes, that does not end within a character.
std::string Beginning(const std::string& text, std::size_t size) {
  if (text.size() <= size) return text;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) --size;
  return text.substr(0, size);
}

std::string Marked(const std::string& name, const std::string& mark) {
  const std::size_t extension = ExtensionOf(name);
  const std::string end = " (" + mark + ")" + name.substr(extension);
  const std::size_t room = kLongestName > end.size() ? kLongestName - end.size() : 0;
  return Beginning(name.substr(0, extension), room) + end;
}

// " (disk 2026-11-21 17.20.05)" in a name.
struct MarkPlace {
  std::size_t begin = 0;
  std::size_t end = 0;
};

std::optional<MarkPlace> FindMark(const std::string& name) {
  const std::size_t begin = name.find(kMarkBegins);
  const std::size_t close = begin == std::string::npos ? begin : name.find(')', begin);
  if (close == std::string::npos) return std::nullopt;
  return MarkPlace{begin, close + 1};
}

// Of long names a mark leaves more than this, and cuts the rest off.
constexpr std::size_t kLeftOfAnyName = 128;

std::string Family(const std::string& folder, const std::string& base,
                   const std::string& extension) {
  return folder + '/' + base.substr(0, kLeftOfAnyName) + '/' + extension;
}

}  // namespace

void HostNames::Use(const std::string& hostPath) { used.insert(ToAsciiLower(hostPath)); }

bool HostNames::IsUsed(const std::string& hostPath) const {
  return used.contains(ToAsciiLower(hostPath));
}

std::string HostNames::Take(const std::string& folder, const std::string& name) {
  std::string path = Join(folder, name);
  if (IsUsed(path)) return TakeMarked(folder, name, kMark);
  Use(path);
  return path;
}

std::string HostNames::TakeBeside(const std::string& hostPath, const std::string& when) {
  return TakeMarked(ParentOf(hostPath), NameOf(hostPath), std::string(kMark) + ' ' + when);
}

std::string HostNames::TakeMarked(const std::string& folder, const std::string& name,
                                  const std::string& mark) {
  std::string path = Join(folder, Marked(name, mark));
  for (int n = 2; IsUsed(path); ++n) {
    path = Join(folder, Marked(name, mark + ' ' + std::to_string(n)));
  }
  Use(path);
  return path;
}

bool MayBeBeside(const std::string& name) { return name.find(kMarkBegins) != std::string::npos; }

std::string FamilyOf(const std::string& hostPath) {
  const std::string name = NameOf(hostPath);
  const std::size_t extension = ExtensionOf(name);
  return Family(ParentOf(hostPath), name.substr(0, extension), name.substr(extension));
}

std::string FamilyOfBeside(const std::string& candidate) {
  const std::string name = NameOf(candidate);
  const auto mark = FindMark(name);
  if (!mark) return {};
  return Family(ParentOf(candidate), name.substr(0, mark->begin), name.substr(mark->end));
}

bool IsBeside(const std::string& candidate, const std::string& hostPath) {
  if (ParentOf(candidate) != ParentOf(hostPath)) return false;
  const std::string other = NameOf(candidate);
  const auto mark = FindMark(other);
  if (!mark) return false;
  const std::string text = other.substr(mark->begin + 2, mark->end - mark->begin - 3);
  return Marked(NameOf(hostPath), text) == other;
}

}  // namespace quorbix::virtdisk::internal::guard
