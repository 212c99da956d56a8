// The exit statuses of all tools.
#ifndef TARVOLIN_TOOLS_COMMON_EXIT_STATUS_H
#define TARVOLIN_TOOLS_COMMON_EXIT_STATUS_H

constexpr int kDone = 0;
constexpr int kRefused = 1;  // refused, a fault found, or an input or output error
constexpr int kWrongUsage = 2;
constexpr int kInterrupted = 130;  // asked to end by a signal, as shells have it

// Those of a comparison, as diff(1) has them; without a difference kDone.
constexpr int kDifferent = 1;
constexpr int kTrouble = 2;  // all that is kRefused or kWrongUsage elsewhere

#endif
