// Finding and opening a partition by its name. A failure is logged here, once, under the operation name `op`.
#ifndef TARVOLIN_STORE_PARTITION_ACCESS_H
#define TARVOLIN_STORE_PARTITION_ACCESS_H

#include "mtd/partitions.h"

// Loads the partition table and looks `name` up. Returns its entry, or null.
[[nodiscard]] const mtd_partition* find_partition(const char* op, const char* name);

// The same, opened at byte 0. Returns a context, or null.
[[nodiscard]] mtd_write_ctx* open_for_writing(const char* op, const char* name);
[[nodiscard]] mtd_read_ctx* open_for_reading(const char* op, const char* name);

#endif
