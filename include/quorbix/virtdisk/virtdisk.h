#ifndef QUORBIX_VIRTDISK_VIRTDISK_H_
#define QUORBIX_VIRTDISK_VIRTDISK_H_

// The whole public interface: build an image from a folder, and see beforehand what that would
// make; browse and edit an image in memory; keep a folder and an image in step,
// plainly on a thread, or guarded for people's own folders.

#include "quorbix/virtdisk/build_preview.h"
#include "quorbix/virtdisk/fat16_fs_image.h"
#include "quorbix/virtdisk/fat_image_builder.h"
#include "quorbix/virtdisk/folder_sync_manager.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"

#endif  // QUORBIX_VIRTDISK_VIRTDISK_H_
