#ifndef QUORBIX_VIRTDISK_TESTS_SUPPORT_NEED_TOOL_H_
#define QUORBIX_VIRTDISK_TESTS_SUPPORT_NEED_TOOL_H_

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/child_process.h"

// A foreign tool that is missing is skipped aloud on a developer's machine and a failure in CI.
#define NEED_TOOL(name)                                                          \
  do {                                                                           \
    if (::quorbix::virtdisk::test::RunCommand({name, "--help"}).status == 127) { \
      if (std::getenv("CI") != nullptr) FAIL() << name << " is missing";         \
      GTEST_SKIP() << name << " is missing: scripts/setup test installs it";     \
    }                                                                            \
  } while (false)

#endif  // QUORBIX_VIRTDISK_TESTS_SUPPORT_NEED_TOOL_H_
