#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_CLOCK_AHEAD_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_CLOCK_AHEAD_H_

namespace quorbix::virtdisk::test {

// By how much the time of day is ahead of the file system's in a program that is made with
// clock_ahead.cc: what was changed just now has then been quiet for long.
extern int secondsAhead;

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_CLOCK_AHEAD_H_
