#include "support/latin1_locale.h"

#include <clocale>
#include <cstdlib>
#include <stdexcept>

#include "support/child_process.h"

namespace quorbix::virtdisk::test {

Latin1Locale::Latin1Locale() : before(std::setlocale(LC_ALL, nullptr)) {
  const CommandResult made = RunCommand({"localedef", "-i", "de_DE", "-f", "ISO-8859-1",
                                         "--no-archive", (compiled / "latin1").string()});
  ::setenv("LOCPATH", compiled.Path().c_str(), 1);
  if (std::setlocale(LC_ALL, "latin1") == nullptr) {
    throw std::runtime_error("cannot set a Latin-1 locale (package locales): " + made.err);
  }
}

Latin1Locale::~Latin1Locale() {
  std::setlocale(LC_ALL, before.c_str());
  ::unsetenv("LOCPATH");
}

}  // namespace quorbix::virtdisk::test
