#include "quorbix/virtdisk/guarded_folder_sync.h"

namespace quorbix::virtdisk {

const char* GuardedHazardName(GuardedHazard hazard) {
  switch (hazard) {
    case GuardedHazard::kFolderMissing:
      return "folder-missing";
    case GuardedHazard::kFolderReplaced:
      return "folder-replaced";
    case GuardedHazard::kFolderEmpty:
      return "folder-empty";
    case GuardedHazard::kFolderUnreadable:
      return "folder-unreadable";
    case GuardedHazard::kFolderNotWritable:
      return "folder-not-writable";
    case GuardedHazard::kImageMissing:
      return "image-missing";
    case GuardedHazard::kImageReplaced:
      return "image-replaced";
    case GuardedHazard::kImageEmpty:
      return "image-empty";
    case GuardedHazard::kImageUnreadable:
      return "image-unreadable";
    case GuardedHazard::kImageNotWritable:
      return "image-not-writable";
    case GuardedHazard::kImageNotFat16:
      return "image-not-fat16";
    case GuardedHazard::kImageUnsound:
      return "image-unsound";
    case GuardedHazard::kImageCutShort:
      return "image-cut-short";
    case GuardedHazard::kImageResized:
      return "image-resized";
    case GuardedHazard::kOtherPartitions:
      return "other-partitions";
    case GuardedHazard::kDoesNotFit:
      return "does-not-fit";
    case GuardedHazard::kManyDeletions:
      return "many-deletions";
    case GuardedHazard::kEntryUnreadable:
      return "entry-unreadable";
    case GuardedHazard::kKindClash:
      return "kind-clash";
    case GuardedHazard::kNested:
      return "nested";
    case GuardedHazard::kNoRoom:
      return "no-room";
    case GuardedHazard::kStateDamaged:
      return "state-damaged";
    case GuardedHazard::kStateNotWritable:
      return "state-not-writable";
    case GuardedHazard::kConflict:
      return "conflict";
  }
  return "";
}

}  // namespace quorbix::virtdisk
