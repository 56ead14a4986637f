#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_INSTRUMENTED_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_INSTRUMENTED_H_

namespace quorbix::virtdisk::test {

// Whether this build runs under AddressSanitizer or ThreadSanitizer, which keep memory of their
// own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kInstrumented = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kInstrumented = true;
#else
inline constexpr bool kInstrumented = false;
#endif
#else
inline constexpr bool kInstrumented = false;
#endif

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_INSTRUMENTED_H_
