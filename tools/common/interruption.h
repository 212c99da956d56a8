// Requests to end. A signal only leaves a note, and long work looks for it: so an interrupted job ends as a
// failed one does, and leaves no temporary file.
#ifndef TARVOLIN_TOOLS_COMMON_INTERRUPTION_H
#define TARVOLIN_TOOLS_COMMON_INTERRUPTION_H

#include <stdexcept>

namespace tools {

// Takes note of SIGINT, SIGTERM and SIGHUP from now on, those excepted that the tool's starter has ignored.
void note_interruptions();

// True once one of them has arrived.
[[nodiscard]] bool was_interrupted();

// How long work ends when one has arrived. It is no refusal: nobody may take it for a fault of what is read.
struct interruption : std::runtime_error {
  interruption() : std::runtime_error("interrupted") {}
};

// Throws an interruption once a signal has arrived.
void heed_interruptions();

}  // namespace tools

#endif
