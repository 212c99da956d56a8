// Commands of the module, run through its shell. They inherit standard input, output and error, and no other
// descriptor of this program, even if a library opened it.
#ifndef TARVOLIN_BASE_SHELL_H
#define TARVOLIN_BASE_SHELL_H

// Runs `command` to its end. Its result is not looked at: callers look at what it should have changed.
void tarv_run_command(const char* command);

// Runs `command` and reads its output. Returns 1 when it prints anything, 0 when not, -1 when it cannot be
// started.
[[nodiscard]] int tarv_command_prints(const char* command);

#endif
