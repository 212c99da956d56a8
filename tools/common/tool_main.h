// What every tool does around its work.
#ifndef TARVOLIN_TOOLS_COMMON_TOOL_MAIN_H
#define TARVOLIN_TOOLS_COMMON_TOOL_MAIN_H

#include "tools/common/exit_status.h"

namespace tools {

// Runs `work`. Signals that ask for an end leave a note (was_interrupted); a reader that has gone and a file
// past the user's limit become failed writes. An exception becomes one line on standard error, which begins
// with `name`. Returns what `work` returns; after an exception `on_fault`, or kInterrupted when a signal has
// asked the tool to end.
[[nodiscard]] int run_tool(const char* name, int (*work)(int argc, char* argv[]), int argc, char* argv[],
                           int on_fault = kRefused);

}  // namespace tools

#endif
