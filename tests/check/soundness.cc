#include "soundness.h"

#include "browser/volume_index.h"
#include "check/check_volume.h"

namespace quorbix::virtdisk::test {
namespace {

using internal::CheckReport;
using internal::EntryRecord;
using internal::HiddenEntry;
using internal::MemorySource;
using internal::VolumeIndex;

std::string FindUnreadable(const std::vector<std::uint8_t>& image, const CheckReport& report) {
  MemorySource source(image);
  VolumeIndex index(source);
  std::string err;
  if (!index.Parse(err, VolumeIndex::Hidden::kCollect)) return "sound, and yet: " + err;
  if (!index.HasAllHiddenEntries()) return "sound, and yet hidden entries are missing";
  const std::uint64_t entries = index.Records().size() + index.HiddenEntries().size();
  if (entries != report.counts.files + report.counts.directories) return "entries are miscounted";
  if (index.HiddenEntries().size() != report.counts.hiddenEntries) return "hidden ones are";
  for (const EntryRecord& record : index.Records()) {
    if (record.allocatedBytes < record.size) return index.PathOf(record) + " is cut";
  }
  for (const HiddenEntry& entry : index.HiddenEntries()) {
    if (entry.allocatedBytes < entry.size) return "a hidden entry is cut";
  }
  return {};
}

}  // namespace

std::string FindFalseReport(const std::vector<std::uint8_t>& image, bool& sound) {
  MemorySource source(image);
  CheckReport report;
  std::string err;
  if (!CheckVolume(source, report, err)) return "memory cannot be read: " + err;
  sound = report.IsSound();
  const internal::VolumeCounts& counts = report.counts;
  if (counts.clusters != counts.usedClusters + counts.freeClusters + counts.badClusters) {
    return "the clusters do not add up";
  }
  if (counts.lostClusters > counts.usedClusters) return "more is lost than is used";
  if (counts.files + counts.directories > image.size() / 32) return "more entries than slots";
  std::uint64_t found = 0;
  for (const std::uint64_t ofAKind : report.found) found += ofAKind;
  if (report.findings.size() > found) return "more findings are listed than were found";
  for (const internal::Finding& finding : report.findings) {
    if (finding.text.empty()) return "a finding has no text";
    if (finding.isDamage && sound) return "sound, and yet: " + finding.text;
  }
  if (!sound) return {};
  return report.isWhole ? FindUnreadable(image, report) : "sound without a look at all of it";
}

}  // namespace quorbix::virtdisk::test
