// The command line.
#ifndef TARVOLIN_MAIN_OPTIONS_H
#define TARVOLIN_MAIN_OPTIONS_H

// What the command line asks for.
enum class tarv_start {
  run_detached,
  run_in_foreground,
  exit_success,  // help was asked for and printed
  exit_failure,  // refused; the reason was printed
};

// Reads the options into ginfo and ghead. A missing --url is refused with the usage text, for program names
// of less than 20 characters; a text too long for its field with one line on standard error.
[[nodiscard]] tarv_start tarv_parse_options(int argc, char* argv[]);

// Prints the usage text.
void tarv_usage(const char* program);

#endif
