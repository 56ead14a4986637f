#include "commands/build_report.h"

#include <utility>

#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr char kNoLabel[] = "(none)";

std::string Line(const std::string& name, const std::string& value) {
  std::string padded = name;
  padded.resize(16, ' ');
  return "  " + padded + value + "\n";
}

std::string LineIfAny(const std::string& name, std::uint64_t number) {
  return number == 0 ? std::string() : Line(name, GroupDigits(number));
}

std::string Entries(std::uint64_t number) { return Count(number, "entry", "entries"); }

std::string DescribeLink(const FollowedLink& link) {
  std::string text = link.host;
  if (link.isMetAgain) {
    text += " is " + (link.metBefore.empty() ? "the folder itself" : link.metBefore) + " again";
  }
  return text + " (" + Entries(link.entries) + ")";
}

RemarkGroup GroupOfRenamed(const BuildNotes& notes) {
  const std::uint64_t number = CountRenamed(notes);
  RemarkGroup group{Entries(number) + (number == 1 ? " has" : " have") + " another name:", {}};
  for (const Renamed& entry : notes.renamed) {
    if (!entry.inCaseAlone) group.lines.push_back(entry.host + " -> " + entry.image);
  }
  return group;
}

RemarkGroup GroupOfLinks(const BuildNotes& notes) {
  std::uint64_t entries = 0;
  std::uint64_t links = 0;
  RemarkGroup group;
  for (const FollowedLink& link : notes.links) {
    if (!link.isBehindLink) {
      ++links;
      entries += link.entries;
    }
    group.lines.push_back(DescribeLink(link));
  }
  group.title = Entries(entries) + (entries == 1 ? " was" : " were") + " reached through " +
                Count(links, "link", "links") + ":";
  return group;
}

Json RenamedRecords(const BuildNotes& notes) {
  Json renamed = Json::array();
  for (const Renamed& entry : notes.renamed) {
    renamed.push_back({{"host", entry.host}, {"image", entry.image}});
  }
  for (const std::string& host : notes.hidden) {
    renamed.push_back({{"host", host}, {"image", nullptr}});
  }
  return renamed;
}

Json LinkRecords(const BuildNotes& notes) {
  Json links = Json::array();
  for (const FollowedLink& link : notes.links) {
    links.push_back({{"host", link.host},
                     {"entries", link.entries},
                     {"metBefore", link.isMetAgain ? Json(link.metBefore) : Json(nullptr)}});
  }
  return links;
}

}  // namespace

std::string FormatReport(const BuildReport& report) {
  const BuildNotes& notes = report.notes;
  const std::uint64_t renamed = CountRenamed(notes);
  return "Built " + Printable(report.image.string()) + ", " + FormatBytes(report.bytes) + "\n" +
         Line("label", report.label.empty() ? kNoLabel : Printable(report.label)) +
         Line("volume id", FormatVolumeId(report.volumeId)) +
         Line("cluster size", FormatBytes(report.clusterBytes)) +
         Line("clusters used", GroupDigits(report.clusters.used)) +
         Line("clusters free", GroupDigits(report.clusters.free)) +
         Line("files", GroupDigits(report.files)) +
         Line("directories", GroupDigits(report.directories)) +
         LineIfAny("names changed", renamed) +
         LineIfAny("in case alone", notes.renamed.size() - renamed) +
         LineIfAny("left out", notes.leftOut.size() + notes.dropped.size()) +
         LineIfAny("passed over", notes.passedOver.size()) +
         LineIfAny("in no listing", notes.hiddenEntries) +
         LineIfAny("copied again", notes.metAgain);
}

std::vector<RemarkGroup> GroupRemarks(const BuildNotes& notes) {
  std::vector<RemarkGroup> groups;
  if (!notes.leftOut.empty()) {
    const std::uint64_t number = notes.leftOut.size();
    groups.push_back(
        {Entries(number) + (number == 1 ? " was" : " were") + " left out:", notes.leftOut});
  }
  if (!notes.passedOver.empty()) {
    const std::uint64_t number = notes.passedOver.size();
    groups.push_back({Entries(number) + (number == 1 ? " was" : " were") +
                          " passed over, being neither a file nor a folder:",
                      notes.passedOver});
  }
  if (CountRenamed(notes) != 0) groups.push_back(GroupOfRenamed(notes));
  if (notes.hiddenEntries != 0) {
    groups.push_back({Entries(notes.hiddenEntries) + (notes.hiddenEntries == 1 ? " is" : " are") +
                          " in the image, but no listing shows " +
                          (notes.hiddenEntries == 1 ? "it" : "them") +
                          ", since the short name has no base:",
                      notes.hidden});
  }
  if (!notes.links.empty()) groups.push_back(GroupOfLinks(notes));
  return groups;
}

Json ReportRecord(const BuildReport& report) {
  return {{"image", report.image.string()},
          {"bytes", report.bytes},
          {"label", report.label},
          {"volumeId", FormatVolumeId(report.volumeId)},
          {"clusterBytes", report.clusterBytes},
          {"clustersUsed", report.clusters.used},
          {"clustersFree", report.clusters.free},
          {"files", report.files},
          {"directories", report.directories},
          {"folderChanged", report.hasFolderChanged},
          {"hidden", report.notes.hiddenEntries},
          {"skipped", report.notes.leftOut},
          {"dropped", report.notes.dropped.size()},
          {"droppedFiles", report.notes.dropped},
          {"passedOver", report.notes.passedOver},
          {"renamed", RenamedRecords(report.notes)},
          {"links", LinkRecords(report.notes)},
          {"copiedAgain", report.notes.metAgain},
          {"remark", report.remark.empty() ? Json(nullptr) : Json(report.remark)}};
}

}  // namespace quorbix::virtdisk::tool
