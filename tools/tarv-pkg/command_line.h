// The tool's command line: what is asked for, carried out.
#ifndef TARVOLIN_TOOLS_TARV_PKG_COMMAND_LINE_H
#define TARVOLIN_TOOLS_TARV_PKG_COMMAND_LINE_H

#include "tools/common/exit_status.h"

namespace tools::tarv_pkg {

// Reads the command line and does the job. Returns kDone, or kWrongUsage with the reason on standard error;
// throws a refusal when the job is not done.
[[nodiscard]] int run_command_line(int argc, char* argv[]);

}  // namespace tools::tarv_pkg

#endif
