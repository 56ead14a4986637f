#include "commands/build_notes.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string_view>

#include "common/ascii.h"
#include "common/host_file.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::string_view kReadError =
    " [transient read error \xE2\x80\x94 file may have changed]";
constexpr char kNoPermission[] = " [no permission to read it]";

std::string_view LastName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

bool DiffersInCaseAlone(std::string_view host, std::string_view image) {
  return std::equal(host.begin(), host.end(), image.begin(), image.end(), [](char a, char b) {
    return internal::ToAsciiUpper(a) == internal::ToAsciiUpper(b);
  });
}

bool MayNotBeRead(const std::string& file) {
  return !internal::OpenHostFile(file.c_str(), O_RDONLY) && (errno == EACCES || errno == EPERM);
}

class NoteTaking {
 public:
  explicit NoteTaking(const BuildPreview& takenPreview)
      : preview(takenPreview),
        links(preview.entries.size(), kNoLink),
        meetings(preview.entries.size(), kNoLink) {}

  BuildNotes Run() {
    for (std::size_t i = 0; i < preview.entries.size(); ++i) {
      const BuildPreviewEntry& entry = preview.entries[i];
      if (entry.fate == BuildFate::kCopied) Note(i);
      if (entry.fate == BuildFate::kPassedOver) notes.passedOver.push_back(entry.hostPath);
    }
    notes.hiddenEntries = preview.hidden;
    return std::move(notes);
  }

 private:
  static constexpr std::size_t kNoLink = ~std::size_t{0};

  void Note(std::size_t number) {
    const BuildPreviewEntry& entry = preview.entries[number];
    NoteName(entry);
    NoteLink(number);
    if (IsCopiedAgainByALink(entry)) ++notes.metAgain;
  }

  bool IsCopiedAgainByALink(const BuildPreviewEntry& entry) const {
    if (!entry.isMetAgain) return false;
    const bool isEntry = entry.metBefore != BuildPreviewEntry::kRoot;
    return entry.isBehindLink || (isEntry && preview.entries[entry.metBefore].isBehindLink);
  }

  void NoteName(const BuildPreviewEntry& entry) {
    const std::string_view host = LastName(entry.hostPath);
    const std::string_view shown = LastName(entry.imagePath);
    if (entry.isHidden) {
      const bool isInHidden =
          entry.directory != BuildPreviewEntry::kRoot && preview.entries[entry.directory].isHidden;
      if (!isInHidden) notes.hidden.push_back(entry.hostPath);
    } else if (shown != host) {
      notes.renamed.push_back(
          {entry.hostPath, std::string(shown), DiffersInCaseAlone(host, shown)});
    }
  }

  void NoteLink(std::size_t number) {
    const BuildPreviewEntry& entry = preview.entries[number];
    if (!entry.isBehindLink) return NoteEndOfLink(entry);
    const bool isInLink =
        entry.directory != BuildPreviewEntry::kRoot && links[entry.directory] != kNoLink;
    if (isInLink) {
      links[number] = links[entry.directory];
      NoteMeeting(number);
    } else {
      links[number] = AddLink(entry, false);
    }
    ++notes.links[links[number]].entries;
  }

  // What a link leads to may come after the link.
  void NoteEndOfLink(const BuildPreviewEntry& entry) {
    if (!entry.isMetAgain || entry.metBefore == BuildPreviewEntry::kRoot) return;
    if (links[entry.metBefore] == kNoLink) return;
    FollowedLink& link = notes.links[links[entry.metBefore]];
    const bool isItsEnd = link.host == preview.entries[entry.metBefore].hostPath;
    if (!isItsEnd || link.isMetAgain) return;
    link.isMetAgain = true;
    link.metBefore = entry.hostPath;
  }

  // Behind a link: what was copied before, unless something above it is told as that already.
  void NoteMeeting(std::size_t number) {
    const BuildPreviewEntry& entry = preview.entries[number];
    if (notes.links[links[number]].isMetAgain) return;
    meetings[number] = meetings[entry.directory];
    if (meetings[number] == kNoLink && entry.isMetAgain) meetings[number] = AddLink(entry, true);
    if (meetings[number] != kNoLink) ++notes.links[meetings[number]].entries;
  }

  std::size_t AddLink(const BuildPreviewEntry& entry, bool isBehindLink) {
    notes.links.push_back({entry.hostPath, 0, entry.isMetAgain, MetBefore(entry), isBehindLink});
    return notes.links.size() - 1;
  }

  std::string MetBefore(const BuildPreviewEntry& entry) const {
    const bool isEntry = entry.isMetAgain && entry.metBefore != BuildPreviewEntry::kRoot;
    return isEntry ? preview.entries[entry.metBefore].hostPath : std::string();
  }

  const BuildPreview& preview;
  std::vector<std::size_t> links;     // by entry: the link in the notes that it lies behind
  std::vector<std::size_t> meetings;  // by entry: what in the notes is met again with it
  BuildNotes notes;
};

}  // namespace

BuildNotes TakeNotes(const BuildPreview& preview, const ImageFit& fit,
                     const std::vector<std::string>& skipped) {
  BuildNotes notes = NoteTaking(preview).Run();
  for (const std::size_t number : fit.droppedEntries) {
    notes.dropped.push_back(preview.entries[number].hostPath);
  }
  for (const std::string& item : skipped) notes.leftOut.push_back(ExplainSkipped(item));
  return notes;
}

std::uint64_t CountRenamed(const BuildNotes& notes) {
  return static_cast<std::uint64_t>(
      std::count_if(notes.renamed.begin(), notes.renamed.end(),
                    [](const Renamed& entry) { return !entry.inCaseAlone; }));
}

std::string ExplainSkipped(const std::string& item) {
  constexpr std::string_view kUnlisted = " [dir-iter: ";
  if (const std::size_t at = item.rfind(kUnlisted); at != std::string::npos) {
    return item.substr(0, at) +
           " [what it holds could not be listed: " + item.substr(at + kUnlisted.size());
  }
  if (item.size() < kReadError.size()) return item;
  const std::size_t end = item.size() - kReadError.size();
  const std::string path = item.substr(0, end);
  if (item.substr(end) != kReadError || !MayNotBeRead(path)) return item;
  return path + kNoPermission;
}

}  // namespace quorbix::virtdisk::tool
