#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_NEXT_FUNCTION_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_NEXT_FUNCTION_H_

#include <dlfcn.h>

namespace quorbix::virtdisk::test {

// The C library's own function, behind that of the same name which a test program puts in front of
// it: NextOf<int(int)>("close").
template <class Function>
Function* NextOf(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_NEXT_FUNCTION_H_
