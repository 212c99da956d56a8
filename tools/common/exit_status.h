// The exit statuses that the tools share. tarv-watch has more: see exit_status_of in
// tarv-watch/run_state.cpp.
#ifndef TARVOLIN_TOOLS_COMMON_EXIT_STATUS_H
#define TARVOLIN_TOOLS_COMMON_EXIT_STATUS_H

namespace tools {

constexpr int kDone = 0;
constexpr int kRefused = 1;  // refused, a fault found, or an input or output error
constexpr int kWrongUsage = 2;
constexpr int kInterrupted = 130;  // asked to end by a signal, as shells have it

// A comparison has statuses of its own, as diff(1) has: kDone means no difference.
constexpr int kDifferent = 1;
constexpr int kTrouble = 2;  // any fault: kRefused and kWrongUsage in one

}  // namespace tools

#endif
