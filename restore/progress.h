// How far the restore has come: a line that is redrawn on a terminal, a line for each
// change elsewhere, or JSON.
//
// A restore is a row of steps; each goes through a known number of bytes. Nothing here can fail: a restore
// does not stop because nobody listens.
#ifndef TARVOLIN_RESTORE_PROGRESS_H
#define TARVOLIN_RESTORE_PROGRESS_H

#include <cstdint>
#include <cstdio>

namespace restore {

enum class progress_form { lines, terminal, json };

// Chooses the form of all that follows, and where it goes. `in_colour` is for terminals.
void show_progress(FILE* out, progress_form form, bool in_colour);

// Begins a step. Both texts are ours or known names, and outlive the step; `total` is in bytes.
void begin_step(const char* work, const char* what, uint64_t total);
// Adds what was done of it.
void add_progress(uint64_t bytes);
// Ends it. `remark` takes the place of what it moved, if it is not null.
void end_step(const char* remark);

// Leaves the line that is being redrawn, for one of somebody else.
void leave_line();

// The last word: how all ended, and the exit status.
void show_outcome(const char* message, int exit_status);

}  // namespace restore

#endif
