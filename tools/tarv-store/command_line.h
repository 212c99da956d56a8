// The tool's command line: what is asked for, carried out.
#ifndef TARVOLIN_TOOLS_TARV_STORE_COMMAND_LINE_H
#define TARVOLIN_TOOLS_TARV_STORE_COMMAND_LINE_H

#include <cstdio>

#include "tools/common/exit_status.h"

namespace tools::tarv_store {

// Reads the command line and does the job, with `out` for its results. Returns kDone, or kWrongUsage with the
// reason on standard error; throws a refusal when the job is not done or the store has a fault.
[[nodiscard]] int run_command_line(int argc, char* argv[], FILE* out);

}  // namespace tools::tarv_store

#endif
