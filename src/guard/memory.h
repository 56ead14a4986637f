#ifndef QUORBIX_VIRTDISK_GUARD_MEMORY_H_
#define QUORBIX_VIRTDISK_GUARD_MEMORY_H_

#include <new>
#include <string>
#include <utility>

namespace quorbix::virtdisk::internal::guard {

// Short enough for a string to hold without asking for memory.
inline constexpr char kNoMemory[] = "out of memory";

// What `work` returns, or `otherwise` where there was not enough memory for it.
template <class Work, class Otherwise>
auto WithinMemory(Work&& work, Otherwise&& otherwise) {
  try {
    return std::forward<Work>(work)();
  } catch (const std::bad_alloc&) {
    return std::forward<Otherwise>(otherwise)();
  }
}

// The same for what says why it has failed in `err`.
template <class Work>
bool WithinMemoryOr(std::string& err, Work&& work) {
  return WithinMemory(std::forward<Work>(work), [&] {
    err = kNoMemory;
    return false;
  });
}

}  // namespace quorbix::virtdisk::internal::guard

#endif  // QUORBIX_VIRTDISK_GUARD_MEMORY_H_
