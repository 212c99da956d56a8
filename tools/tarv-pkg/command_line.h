// The tool's command line: what is asked for, carried out.
#ifndef TARVOLIN_TOOLS_TARV_PKG_COMMAND_LINE_H
#define TARVOLIN_TOOLS_TARV_PKG_COMMAND_LINE_H

constexpr int kDone = 0;
constexpr int kRefused = 1;  // refused, a fault found, or an input or output error
constexpr int kWrongUsage = 2;

// Reads the command line and does the job. Returns kDone, or kWrongUsage with the reason on standard error;
// throws a refusal when the job is not done.
[[nodiscard]] int run_command_line(int argc, char* argv[]);

#endif
