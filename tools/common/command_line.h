// What every tool does around its command line.
#ifndef TARVOLIN_TOOLS_COMMON_COMMAND_LINE_H
#define TARVOLIN_TOOLS_COMMON_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>

namespace tools {

// Reads the command line into what `app` was given and does the job; help and version, when asked for, go to
// `out` instead. Returns what the job returns, kDone after help or version, or kWrongUsage after a sentence
// on standard error when the reader or the job throws a CLI::ParseError.
[[nodiscard]] int take_command_line(CLI::App& app, int argc, char* argv[], FILE* out,
                                    const std::function<int()>& job);

}  // namespace tools

#endif
