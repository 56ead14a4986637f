#ifndef QUORBIX_VIRTDISK_TESTS_GUARD_CUT_OFF_H_
#define QUORBIX_VIRTDISK_TESTS_GUARD_CUT_OFF_H_

#include <functional>

// The program that links cut_off.cc has functions of its own in front of those of the C library
// that change something, or open it, for the C++ library as well: something can be made to happen
// at one of these calls.

namespace quorbix::virtdisk::test {

extern int callsBeforeTheEnd;            // negative: nothing happens
extern std::function<int()> atThatCall;  // an error, with which the call fails, or 0
extern bool refusesFromThenOn;           // with that error, and not this call alone
extern bool canExchange;                 // names
extern bool canLink;
extern bool countsOpenings;  // those that make nothing as well

// Kills the process.
int Die();

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_GUARD_CUT_OFF_H_
