// The end of a restore: the store's record is erased.
#ifndef TARVOLIN_RESTORE_DISARMING_H
#define TARVOLIN_RESTORE_DISARMING_H

#include "restore/store.h"

namespace restore {

// Erases the record's block and makes sure that the record is gone. Returns 0, or -1 with a fault.
[[nodiscard]] int disarm(const store& restored);

}  // namespace restore

#endif
