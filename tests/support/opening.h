#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_OPENING_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_OPENING_H_

namespace quorbix::virtdisk::test {

// A call of open(2) or openat(2). In a program that is made with opening.cc all of them come by,
// those of the C++ library included.
struct Opening {
  bool isOpenat = false;
  int folder = -1;  // AT_FDCWD for open
  const char* path = nullptr;
  int flags = 0;
  int mode = 0;

  // What the C library's own function returns.
  int Next() const;
};

// What is to be returned instead; such a program defines it.
int InPlaceOf(const Opening& opening);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_OPENING_H_
