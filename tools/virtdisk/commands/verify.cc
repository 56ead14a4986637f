#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "check/check_volume.h"
#include "commands/commands.h"
#include "disk/opened_image.h"
#include "disk/shown_source.h"
#include "terminal/columns.h"
#include "terminal/exit_status.h"
#include "terminal/json.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

using internal::CheckedPart;
using internal::CheckReport;
using internal::Finding;
using internal::FindingKind;
using internal::VolumeCounts;

struct Row {
  CheckedPart part;
  const char* name;
};

constexpr std::array<Row, 6> kRows{{{CheckedPart::kPartitionTable, "partition table"},
                                    {CheckedPart::kBootSector, "boot sector"},
                                    {CheckedPart::kFats, "FATs"},
                                    {CheckedPart::kChains, "chains"},
                                    {CheckedPart::kDirectories, "directories"},
                                    {CheckedPart::kNames, "names"}}};

// The others are looked at in any image.
bool NeedsAReadableVolume(CheckedPart part) {
  return part != CheckedPart::kPartitionTable && part != CheckedPart::kBootSector;
}

std::string ResultOf(const CheckReport& report, CheckedPart part) {
  std::uint64_t damages = 0;
  std::uint64_t remarks = 0;
  for (std::size_t i = 0; i < report.found.size(); ++i) {
    const auto kind = static_cast<FindingKind>(i);
    if (PartOf(kind) == part) (IsDamage(kind) ? damages : remarks) += report.found[i];
  }
  if (damages + remarks == 0) {
    if (part == CheckedPart::kPartitionTable && !report.isPartitioned) return "not used";
    if (!report.isWhole && NeedsAReadableVolume(part)) return "not looked at";
  }
  std::string text = damages == 0 ? "sound" : Count(damages, "fault", "faults");
  if (remarks > 0) text += ", " + Count(remarks, "remark", "remarks");
  return text;
}

std::string Named(const char* name, const std::string& text) {
  constexpr std::size_t kNameWidth = 17;
  return AlignLeft(name, kNameWidth) + text + "\n";
}

std::string RowsOf(const CheckReport& report) {
  std::string text;
  for (const Row& row : kRows) text += Named(row.name, ResultOf(report, row.part));
  return text;
}

std::string CountsText(const VolumeCounts& counts) {
  const std::string clusters =
      GroupDigits(counts.clusters) + " of " + FormatBytes(counts.clusterBytes) + ": " +
      GroupDigits(counts.usedClusters) + " used, " + GroupDigits(counts.freeClusters) + " free, " +
      GroupDigits(counts.badClusters) + " bad, " + GroupDigits(counts.lostClusters) + " lost";
  std::string entries = Count(counts.files, "file", "files") + ", " +
                        Count(counts.directories, "directory", "directories");
  if (counts.hiddenEntries > 0) {
    entries += ", " + GroupDigits(counts.hiddenEntries) + " of them in no listing";
  }
  return Named("clusters", clusters) + Named("entries", entries);
}

std::string FindingLine(const Finding& finding) {
  std::string text = finding.isDamage ? "fault:   " : "remark:  ";
  if (!finding.path.empty()) text += finding.path + " ";
  return Printable(text + finding.text) + "\n";
}

const char* Verdict(const CheckReport& report) {
  using enum FindingKind;
  if (report.IsSound()) return "The volume is sound.\n";
  if (report.Found(kOtherSectorSize) > 0) {
    return "The volume cannot be read; the rest was not looked at.\n";
  }
  for (const FindingKind kind : {kNoVolume, kFat12, kFat32, kTakenForFat12}) {
    if (report.Found(kind) > 0) return "This is no FAT16 volume; the rest was not looked at.\n";
  }
  return "The volume is damaged.\n";
}

void PrintTable(Console& console, const CheckReport& report) {
  PrintToOut(console, RowsOf(report));
  if (report.isWhole) PrintToOut(console, CountsText(report.counts));
  if (!report.findings.empty()) console.out << "\n";
  for (const Finding& finding : report.findings) PrintToOut(console, FindingLine(finding));
  for (std::size_t i = 0; i < report.found.size(); ++i) {
    if (report.found[i] <= CheckReport::kMostOfAKind) continue;
    PrintToOut(console, "and " + GroupDigits(report.found[i] - CheckReport::kMostOfAKind) +
                            " more of the kind " +
                            std::string(KindName(static_cast<FindingKind>(i))) + "\n");
  }
  PrintToOut(console, std::string("\n") + Verdict(report));
}

Json FindingRecord(const Finding& finding) {
  const auto text = [](const std::string& path) {
    return path.empty() ? Json(nullptr) : Json(path);
  };
  return {{"kind", KindName(finding.kind)}, {"damage", finding.isDamage},
          {"path", text(finding.path)},     {"otherPath", text(finding.otherPath)},
          {"numbers", finding.numbers},     {"text", finding.text}};
}

Json ReportRecord(const VerifyOptions& options, const CheckReport& report) {
  const VolumeCounts& counts = report.counts;
  Json findings = Json::array();
  for (const Finding& finding : report.findings) findings.push_back(FindingRecord(finding));
  Json found = Json::object();
  for (std::size_t i = 0; i < report.found.size(); ++i) {
    if (report.found[i] > 0) {
      found[std::string(KindName(static_cast<FindingKind>(i)))] = report.found[i];
    }
  }
  return {{"image", options.image.string()},
          {"sound", report.IsSound()},
          {"whole", report.isWhole},
          {"clusters", counts.clusters},
          {"clusterBytes", counts.clusterBytes},
          {"clustersUsed", counts.usedClusters},
          {"clustersFree", counts.freeClusters},
          {"clustersBad", counts.badClusters},
          {"clustersLost", counts.lostClusters},
          {"files", counts.files},
          {"directories", counts.directories},
          {"hiddenEntries", counts.hiddenEntries},
          {"found", found},
          {"findings", findings}};
}

}  // namespace

int RunVerify(Console& console, const VerifyOptions& options) {
  const auto source = OpenSource(console, options.image);
  if (!source) return kFailed;
  std::string err;
  CheckReport report;
  ShownSource shown(console, *source);
  const bool isChecked =
      CheckVolume(shown, report, err, [&](std::uint64_t more, std::uint64_t inUse) {
        shown.Count("checking clusters", more, inUse);
      });
  shown.Finish();
  if (!isChecked) {
    return Fail(console, err, "Nothing can be said about " + options.image.string() + ".");
  }
  if (options.json) {
    console.out << OneLine(ReportRecord(options, report)) << "\n";
  } else {
    PrintTable(console, report);
  }
  return report.IsSound() ? kDone : kFailed;
}

}  // namespace quorbix::virtdisk::tool
