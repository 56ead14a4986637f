#include "browser/path_keys.h"

#include <algorithm>

namespace quorbix::virtdisk::internal {
namespace {

// Takes the first component off `path`, which is "/" or has a "/" in front of every component.
// Empty when there is none left.
std::string_view TakeComponent(std::string_view& path) {
  if (!path.empty()) path.remove_prefix(1);
  const std::string_view component = path.substr(0, path.find('/'));
  path.remove_prefix(component.size());
  return component;
}

}  // namespace

void PathKeys::Clear() noexcept {
  steps.clear();
  size = 0;
}

void PathKeys::KnowRoot() noexcept { size = 1; }

PathKeys::Step PathKeys::MakeStep(Key parent, std::string_view component) {
  Step step{.parent = parent, .length = static_cast<std::uint8_t>(component.size())};
  std::copy(component.begin(), component.end(), step.component.begin());
  return step;
}

PathKeys::Key PathKeys::Intern(Key parent, std::string_view path) {
  Key key = parent;
  for (auto component = TakeComponent(path); !component.empty(); component = TakeComponent(path)) {
    const auto [known, isNew] = steps.try_emplace(MakeStep(key, component), size);
    if (isNew) ++size;
    key = known->second;
  }
  return key;
}

std::optional<PathKeys::Key> PathKeys::Find(std::string_view path) const {
  if (size == 0) return std::nullopt;
  Key key = kRoot;
  for (auto component = TakeComponent(path); !component.empty(); component = TakeComponent(path)) {
    if (component.size() > kMaxComponent) return std::nullopt;
    const auto known = steps.find(MakeStep(key, component));
    if (known == steps.end()) return std::nullopt;
    key = known->second;
  }
  return key;
}

}  // namespace quorbix::virtdisk::internal
