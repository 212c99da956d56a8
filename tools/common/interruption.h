// Being asked to end. A signal only leaves a note, which long work looks at, so that an interrupted job takes
// the same way out as a failed one and leaves no temporary file.
#ifndef TARVOLIN_TOOLS_COMMON_INTERRUPTION_H
#define TARVOLIN_TOOLS_COMMON_INTERRUPTION_H

// Takes note of SIGINT, SIGTERM and SIGHUP from now on, those excepted that the tool's starter has ignored.
void note_interruptions();

// True once one of them has arrived.
[[nodiscard]] bool was_interrupted();

#endif
