#include "guard/host_names.h"

#include <cstddef>

#include "common/ascii.h"
#include "guard/model.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

constexpr char kMark[] = "disk";
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

bool MayBeBeside(const std::string& name) {
  return name.find(std::string(" (") + kMark + ' ') != std::string::npos;
}

bool IsBeside(const std::string& candidate, const std::string& hostPath) {
  if (ParentOf(candidate) != ParentOf(hostPath)) return false;
  const std::string name = NameOf(hostPath);
  const std::string other = NameOf(candidate);
  const std::size_t mark = other.find(std::string(" (") + kMark + ' ');
  const std::size_t close = other.find(')', mark == std::string::npos ? 0 : mark);
  if (mark == std::string::npos || close == std::string::npos) return false;
  return Marked(name, other.substr(mark + 2, close - mark - 2)) == other;
}

}  // namespace quorbix::virtdisk::internal::guard
