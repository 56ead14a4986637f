#ifndef QUORBIX_VIRTDISK_EXPORT_H_
#define QUORBIX_VIRTDISK_EXPORT_H_

// Marks what the shared library offers; everything else in it is compiled hidden.
#define QUORBIX_VIRTDISK_EXPORT __attribute__((visibility("default")))

// Takes a nested class out of the interface of the exported class around it.
#define QUORBIX_VIRTDISK_HIDDEN __attribute__((visibility("hidden")))

#endif  // QUORBIX_VIRTDISK_EXPORT_H_
