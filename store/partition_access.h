// Opening a partition by its name. A failure is logged here, once, under the operation name `op`.
#ifndef TARVOLIN_STORE_PARTITION_ACCESS_H
#define TARVOLIN_STORE_PARTITION_ACCESS_H

#include "mtd/partitions.h"

// Each loads the partition table, looks `name` up and opens it at byte 0. Returns a context, or null.
[[nodiscard]] mtd_write_ctx* open_for_writing(const char* op, const char* name);
[[nodiscard]] mtd_read_ctx* open_for_reading(const char* op, const char* name);

#endif
