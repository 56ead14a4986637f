#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_WATCHED_HEAP_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_WATCHED_HEAP_H_

#include <cstddef>
#include <limits>
#include <new>

namespace quorbix::virtdisk::test {

// The program that links watched_heap.cc has its operator new, which can be told to fail, and which
// counts.

// Bytes that operator new gave out and nobody gave back; and the most of them at one time, since
// the program began or the peak was set back to what is in use.
std::size_t BytesInUse();
std::size_t PeakBytesInUse();
void ResetPeak();

// Lets so many allocations succeed and so many after them fail.
void AllowAllocations(long allocations,  // negative: any number
                      long failures = std::numeric_limits<long>::max());
// Whether one has failed since.
bool HasFailedAllocation();

// Runs `operation` with `allocations` that succeed; the next one throws. Returns whether the
// operation went through.
template <class Operation>
bool RunWithAllocations(long allocations, Operation&& operation) {
  AllowAllocations(allocations);
  try {
    operation();
    AllowAllocations(-1);
    return true;
  } catch (const std::bad_alloc&) {
    AllowAllocations(-1);
    return false;
  }
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_WATCHED_HEAP_H_
