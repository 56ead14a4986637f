#include "commands/auto_size.h"

#include <cstddef>

#include "fat16/full_disk.h"
#include "fat16/geometry.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint64_t kLargestImage = kLargestImageMiB << 20;

// Without the empty files that find no slot in an image of any size.
BuildPreview WithoutDropped(BuildPreview preview, const ImageFit& fit) {
  for (const std::size_t dropped : fit.droppedEntries) {
    preview.entries[dropped].fate = BuildFate::kPassedOver;
  }
  return preview;
}

}  // namespace

std::uint64_t AutoSize(const BuildPreview& preview, std::uint64_t aboveBytes) {
  const std::uint64_t smallest = SmallestImage(preview, aboveBytes);
  if (smallest != 0 || preview.isEndless) return smallest;
  const ImageFit fit = FitIntoImage(preview, kLargestImage);
  return fit.dropped == 0 ? 0 : SmallestImage(WithoutDropped(preview, fit), aboveBytes);
}

std::string WhyNoSizeWillDo(const BuildPreview& preview) {
  if (preview.isEndless) {
    return "It needs more than 4.0 GiB, the most that an image can hold; do links in it lead back "
           "up?";
  }
  if (FitIntoImage(preview, kLargestImage).message == internal::kRootFull) {
    return "It has more than " + Count(internal::kMostRootEntries, "entry", "entries") +
           " at its top, and the root of an image holds no more, whatever the size; move some of "
           "them into subfolders.";
  }
  return "Its files and folders need more clusters than any image has; leave something out.";
}

}  // namespace quorbix::virtdisk::tool
