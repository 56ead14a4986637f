#ifndef QUORBIX_VIRTDISK_GUARD_CLOCK_H_
#define QUORBIX_VIRTDISK_GUARD_CLOCK_H_

#include <cstdint>
#include <ctime>
#include <string>

namespace quorbix::virtdisk::internal::guard {

// Nanoseconds since 1970, by the clock that files are stamped with.
std::int64_t NowNanoseconds();
// Times further away than three centuries count as that.
std::int64_t ToNanoseconds(const ::timespec& time);

// "2026-11-21 17.20.05", in the local time zone.
std::string LocalTimeText(std::int64_t nanoseconds);

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_CLOCK_H_
