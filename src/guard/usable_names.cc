#include "guard/usable_names.h"

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "browser/entry_record.h"
#include "check/tree_check.h"
#include "fat16/volume_layout.h"
#include "guard/disk_names.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

// Directories are told apart by their numbers: their paths are not known yet.
std::string DirectoryOf(const EntryRecord& record) { return std::to_string(record.parent); }

// What begins with its only dot would have an empty base.
std::string WithBase(std::string name) {
  if (name.starts_with('.')) name.front() = '_';
  return name;
}

bool IsDot(std::string_view name) { return name == "." || name == ".."; }

}  // namespace

bool UsableNames::Choose(ByteSource& source, std::string& err) {
  DiskNames taken;
  std::vector<std::size_t> unusable;
  std::vector<std::uint8_t> buffer;
  const std::vector<EntryRecord>& records = index.Records();
  for (std::size_t number = 0; number < records.size(); ++number) {
    const std::uint8_t* slot =
        source.Read(records[number].dirEntryOffset, dir_entry::kSize, buffer, err);
    if (slot == nullptr) return false;
    if (IsUnusableName(slot)) {
      unusable.push_back(number);
    } else {
      taken.Use(DirectoryOf(records[number]),
                {reinterpret_cast<const char*>(slot), dir_entry::kNameSize});
    }
  }
  for (const std::size_t number : unusable) {
    const std::string own(records[number].Name());
    if (IsDot(own)) continue;
    std::string name = taken.Take(DirectoryOf(records[number]), WithBase(own));
    if (!name.empty()) chosen.emplace(number, std::move(name));
  }
  return true;
}

const std::string* UsableNames::ChosenFor(std::size_t record) const {
  const auto found = chosen.find(record);
  return found == chosen.end() ? nullptr : &found->second;
}

std::string UsableNames::PathOf(std::size_t record) const {
  const std::vector<EntryRecord>& records = index.Records();
  if (chosen.empty()) return index.PathOf(records[record]).substr(1);
  std::vector<std::string_view> names;
  for (;; record = records[record].parent) {
    const std::string* other = ChosenFor(record);
    names.push_back(other != nullptr ? *other : records[record].Name());
    if (records[record].parent == VolumeIndex::kNoRecord) break;
  }
  std::string path(names.back());
  for (auto name = names.rbegin() + 1; name != names.rend(); ++name) path.append("/").append(*name);
  return path;
}

}  // namespace quorbix::virtdisk::internal::guard
