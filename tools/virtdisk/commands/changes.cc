#include "commands/changes.h"

namespace quorbix::virtdisk::tool {

std::vector<Change> Compare(const Listing& before, const Listing& after) {
  std::vector<Change> changes;
  auto old = before.begin();
  for (const auto& [path, marks] : after) {
    for (; old != before.end() && old->first < path; ++old) {
      changes.push_back({ChangeKind::kDeleted, old->first});
    }
    const bool known = old != before.end() && old->first == path;
    if (!known) changes.push_back({ChangeKind::kNew, path});
    if (known && old->second != marks) changes.push_back({ChangeKind::kChanged, path});
    if (known) ++old;
  }
  for (; old != before.end(); ++old) changes.push_back({ChangeKind::kDeleted, old->first});
  return changes;
}

const char* Describe(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::kNew:
      return "new";
    case ChangeKind::kChanged:
      return "changed";
    case ChangeKind::kDeleted:
      return "deleted";
  }
  return "";
}

}  // namespace quorbix::virtdisk::tool
