// Finding a partition of the module by name, for whoever logs.
#ifndef TARVOLIN_STORE_PARTITION_LOOKUP_H
#define TARVOLIN_STORE_PARTITION_LOOKUP_H

#include "mtd/partitions.h"

// Loads the partition table anew and looks `name` up. Returns its entry, or null, logged under the operation
// name `op`.
[[nodiscard]] const mtd_partition* find_logged_partition(const char* op, const char* name);

#endif
