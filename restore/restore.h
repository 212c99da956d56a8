// The whole restore, from the record to the disarmed store.
#ifndef TARVOLIN_RESTORE_RESTORE_H
#define TARVOLIN_RESTORE_RESTORE_H

#include "restore/options.h"

namespace restore {

// Exit statuses.
constexpr int kRestored = 0;
constexpr int kLocked = 1;
constexpr int kWrongUsage = 2;
constexpr int kRefused = 10;  // nothing was written; armed as before
constexpr int kFailed = 11;   // a target may be incomplete; still armed, unless the disarming itself failed
constexpr int kNothing = 20;

// Restores, and shows how it goes and ends. The lock is the caller's. Returns the exit status.
[[nodiscard]] int run_restore(const options& wanted);

}  // namespace restore

#endif
