#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_LATIN1_LOCALE_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_LATIN1_LOCALE_H_

#include <string>

#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {

// Puts the whole process into a German ISO 8859-1 locale, in which bytes of 0xC0 and above are
// letters with case, for as long as it lives. The locale is compiled with localedef.
class Latin1Locale {
 public:
  Latin1Locale();
  ~Latin1Locale();
  Latin1Locale(const Latin1Locale&) = delete;
  Latin1Locale& operator=(const Latin1Locale&) = delete;

 private:
  TempFolder compiled;
  std::string before;
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_LATIN1_LOCALE_H_
