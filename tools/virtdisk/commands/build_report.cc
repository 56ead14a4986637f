#include "commands/build_report.h"

#include <string_view>
#include <utility>

#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr char kNotListed[] = "(in the image, but not listed: the short name has no base)";
constexpr char kNoLabel[] = "(none: the folder's path has no last name)";

std::string Line(const std::string& name, const std::string& value) {
  std::string padded = name;
  padded.resize(16, ' ');
  return "  " + padded + value + "\n";
}

std::string_view LastName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

std::vector<Renamed> FindRenamed(const BuildPreview& preview) {
  std::vector<Renamed> renamed;
  for (const BuildPreviewEntry& entry : preview.entries) {
    if (entry.fate != BuildFate::kCopied) continue;
    const std::string_view shown = LastName(entry.imagePath);
    if (entry.isHidden) {
      renamed.push_back({entry.hostPath, {}});
    } else if (shown != LastName(entry.hostPath)) {
      renamed.push_back({entry.hostPath, std::string(shown)});
    }
  }
  return renamed;
}

std::string FormatReport(const BuildReport& report) {
  std::string text =
      "Built " + Printable(report.image.string()) + ", " + FormatBytes(report.bytes) + "\n";
  text += Line("label", report.label.empty() ? kNoLabel : Printable(report.label));
  text += Line("volume id", FormatVolumeId(report.volumeId));
  text += Line("cluster size", FormatBytes(report.clusterBytes));
  text += Line("clusters used", GroupDigits(report.clusters.used));
  text += Line("clusters free", GroupDigits(report.clusters.free));
  text += Line("files", GroupDigits(report.files));
  text += Line("directories", GroupDigits(report.directories));
  if (!report.skipped.empty()) text += "Skipped:\n";
  for (const std::string& entry : report.skipped) text += "  " + Printable(entry) + "\n";
  if (!report.renamed.empty()) text += "Shown under another name:\n";
  for (const Renamed& entry : report.renamed) {
    const std::string shown = entry.image.empty() ? kNotListed : entry.image;
    text += "  " + Printable(entry.host) + " -> " + Printable(shown) + "\n";
  }
  return text;
}

Json ReportRecord(const BuildReport& report) {
  Json renamed = Json::array();
  for (const Renamed& entry : report.renamed) {
    renamed.push_back(
        {{"host", entry.host}, {"image", entry.image.empty() ? Json(nullptr) : Json(entry.image)}});
  }
  return {{"image", report.image.string()},
          {"bytes", report.bytes},
          {"label", report.label},
          {"volumeId", FormatVolumeId(report.volumeId)},
          {"clusterBytes", report.clusterBytes},
          {"clustersUsed", report.clusters.used},
          {"clustersFree", report.clusters.free},
          {"files", report.files},
          {"directories", report.directories},
          {"skipped", report.skipped},
          {"renamed", std::move(renamed)},
          {"remark", report.remark.empty() ? Json(nullptr) : Json(report.remark)}};
}

}  // namespace quorbix::virtdisk::tool
