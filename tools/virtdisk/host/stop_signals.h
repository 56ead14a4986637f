#ifndef QUORBIX_VIRTDISK_TOOL_STOP_SIGNALS_H_
#define QUORBIX_VIRTDISK_TOOL_STOP_SIGNALS_H_

#include <signal.h>

#include <string>

namespace quorbix::virtdisk::tool {

// From here on SIGINT, SIGTERM and SIGHUP end the process at once, and so does SIGPIPE, which
// writing to a closed pipe brings about: with the status 128 and the signal's number, after what
// was left to LeaveToSignals is removed. One of the first three that is ignored stays so, as SIGHUP
// is under nohup, and SIGINT in a script's background.
void EndOnSignals();

// A file that a signal which ends the process removes: see EndOnSignals. Gives a number to take it
// back with, or -1 when there are too many already.
//
// A file belongs to the caller alone between its making and this call only while no signal comes in
// between: see SignalsHeld.
int LeaveToSignals(const char* path);
void TakeBackFromSignals(int number);

// As many columns of the terminal's last line, on the standard error, are overwritten with blanks
// before a signal ends the process; 0 for none.
void EraseOnSignals(unsigned columns);

// While it lives, a signal that asks for an end has the text printed on the standard error before
// the process ends, for what is left half done. One at a time.
class LastWords {
 public:
  explicit LastWords(std::string spoken);
  ~LastWords();
  LastWords(const LastWords&) = delete;
  LastWords& operator=(const LastWords&) = delete;

 private:
  const std::string text;
};

// While it lives, signals that would end the process wait.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

  // Whether one of those that ask for an end has come meanwhile.
  static bool IsAnyWaiting();

 private:
  ::sigset_t before;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_STOP_SIGNALS_H_
