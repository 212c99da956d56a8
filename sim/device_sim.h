// Calls on the simulated flash for tests in the same process, besides the seam itself.
#ifndef TARVOLIN_SIM_DEVICE_SIM_H
#define TARVOLIN_SIM_DEVICE_SIM_H

#include <string>

#include "sim/fault_plan.h"

// Starts over on the module in `folder` as a new process would: its files are read again, the counts are
// zero. Descriptors that are still open are closed. Returns how many there were.
size_t sim_restart(const std::string& folder);

// Operations since the start.
const flash_counts& sim_counts();

#endif
