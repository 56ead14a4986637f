#include "commands/auto_size.h"

#include "fat16/geometry.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

bool IsInRoot(const BuildPreviewEntry& entry) {
  return entry.fate == BuildFate::kCopied && entry.directory == BuildPreviewEntry::kRoot;
}

bool IsEmptyFile(const BuildPreviewEntry& entry) { return !entry.isDirectory && entry.bytes == 0; }

BuildPreview WithoutDropped(BuildPreview preview) {
  std::uint64_t inRoot = 0;
  for (BuildPreviewEntry& entry : preview.entries) {
    if (!IsInRoot(entry)) continue;
    if (inRoot == internal::kMostRootEntries && IsEmptyFile(entry)) {
      entry.fate = BuildFate::kPassedOver;
    } else {
      ++inRoot;
    }
  }
  return preview;
}

bool RootOverflows(const BuildPreview& preview) {
  std::uint64_t inRoot = 0;
  for (const BuildPreviewEntry& entry : preview.entries) inRoot += IsInRoot(entry) ? 1U : 0U;
  return inRoot > internal::kMostRootEntries;
}

}  // namespace

std::uint64_t AutoSize(const BuildPreview& preview, std::uint64_t aboveBytes) {
  if (preview.isEndless || !RootOverflows(preview)) return SmallestImage(preview, aboveBytes);
  return SmallestImage(WithoutDropped(preview), aboveBytes);
}

std::string WhyNoSizeWillDo(const BuildPreview& preview) {
  if (preview.isEndless) {
    return "It needs more than 4.0 GiB, the most that an image can hold; do links in it lead back "
           "up?";
  }
  if (RootOverflows(preview)) {
    return "It has more than " + Count(internal::kMostRootEntries, "entry", "entries") +
           " at its top, and the root of an image holds no more, whatever the size; move some of "
           "them into subfolders.";
  }
  return "Its files and folders need more clusters than any image has; leave something out.";
}

}  // namespace quorbix::virtdisk::tool
