#ifndef QUORBIX_VIRTDISK_BROWSER_PATH_KEYS_H_
#define QUORBIX_VIRTDISK_BROWSER_PATH_KEYS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>

namespace quorbix::virtdisk::internal {

// Numbers the normalised paths of a volume, in the order in which they are first seen.
//
// Two paths have the same number when their texts are the same, but no text is kept: a path is
// known by its parent's number and its last component. That keeps the memory per entry fixed in
// directories nested thousands deep, where the paths' lengths would add up quadratically. The map
// is ordered, because the names come from the image and could be chosen to collide in a hash table.
class PathKeys {
 public:
  using Key = std::uint32_t;
  static constexpr Key kRoot = 0;
  // Longest component that an entry's name can have: base, dot and extension.
  static constexpr std::size_t kMaxComponent = 12;

  // Forgets every path, the root too, as a new object.
  void Clear() noexcept;

  // Gives the root its number; before that nothing is found. Only after Clear.
  void KnowRoot() noexcept;

  // The number of `path`, taken below `parent`, after giving one to each part of it that had none.
  // `path` is normalised and its components have at most kMaxComponent bytes.
  Key Intern(Key parent, std::string_view path);

  // The number of the normalised `path`, if it has one.
  std::optional<Key> Find(std::string_view path) const;

  // How many paths have a number; the numbers are below it.
  std::size_t Size() const { return size; }

 private:
  struct Step {
    Key parent = kRoot;
    std::uint8_t length = 0;  // of the component, which may hold any byte
    std::array<unsigned char, kMaxComponent> component{};
    bool operator<(const Step& other) const {
      return std::tie(parent, length, component) <
             std::tie(other.parent, other.length, other.component);
    }
  };
  static Step MakeStep(Key parent, std::string_view component);

  std::map<Step, Key> steps;
  Key size = 0;
};

}  // namespace quorbix::virtdisk::internal

#endif  // QUORBIX_VIRTDISK_BROWSER_PATH_KEYS_H_
