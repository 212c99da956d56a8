#include "tools/common/interruption.h"

#include <csignal>
#include <initializer_list>

namespace tools {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void take_note(int) {
  interrupted = 1;
}

}  // namespace

void note_interruptions() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction current = {};
    sigaction(number, nullptr, &current);
    if (current.sa_handler == SIG_IGN) continue;
    struct sigaction noted = {};
    noted.sa_handler = take_note;  // without SA_RESTART: a blocked write to standard output ends as well
    sigaction(number, &noted, nullptr);
  }
}

bool was_interrupted() {
  return interrupted != 0;
}

void heed_interruptions() {
  if (was_interrupted()) throw interruption();
}

}  // namespace tools
