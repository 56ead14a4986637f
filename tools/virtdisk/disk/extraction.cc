#include "disk/extraction.h"

#include <limits.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "browser/path_text.h"
#include "disk/image_tree.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr char kLeavesFolder[] = "its name would lead out of the destination";
constexpr char kParentRefused[] = "its directory was refused";
constexpr char kTooLong[] = "its path is too long for the host";
constexpr char kShadowed[] = "another entry has the same name";

// Puts host paths together from names that were looked at one by one. Paths of an image are not cut
// up for that: a name may hold separators.
class Planner {
 public:
  explicit Planner(const std::string& top) : topKey(internal::NormalizePath(top)) {}

  ExtractionStep Plan(const Fat16FsEntry& entry) {
    ExtractionStep step{&entry, {}, nullptr};
    if (!StaysInFolder(entry.name)) {
      step.refusal = kLeavesFolder;
      return step;
    }
    const std::string parent = ParentPath(entry);
    const auto folder = targets.find(parent);
    const bool isTop = internal::NormalizePath(parent) == topKey;
    if (!isTop && folder == targets.end()) {
      step.refusal = kParentRefused;
    } else if (!entry.isDirectory && !fileKeys.insert(internal::NormalizePath(entry.path)).second) {
      step.refusal = kShadowed;
    } else {
      step.target = isTop ? entry.name : folder->second + "/" + entry.name;
      if (step.target.size() >= PATH_MAX) step.refusal = kTooLong;
    }
    if (step.refusal == nullptr && entry.isDirectory) targets[entry.path] = step.target;
    return step;
  }

 private:
  const std::string topKey;
  std::unordered_map<std::string, std::string> targets;  // of directories, by stored path
  std::unordered_set<std::string> fileKeys;
};

}  // namespace

bool StaysInFolder(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

std::vector<ExtractionStep> PlanExtraction(const std::vector<const Fat16FsEntry*>& entries,
                                           const std::string& top) {
  std::vector<const Fat16FsEntry*> ordered = entries;
  const auto files = std::stable_partition(
      ordered.begin(), ordered.end(), [](const Fat16FsEntry* entry) { return entry->isDirectory; });
  // Directories whose paths differ in letter case only list together, after the first of them. By
  // length, each still comes before what is in it.
  std::stable_sort(ordered.begin(), files, [](const Fat16FsEntry* a, const Fat16FsEntry* b) {
    return a->path.size() < b->path.size();
  });
  Planner planner(top);
  std::vector<ExtractionStep> steps;
  steps.reserve(ordered.size());
  for (const Fat16FsEntry* entry : ordered) steps.push_back(planner.Plan(*entry));
  return steps;
}

}  // namespace quorbix::virtdisk::tool
