// The block of the store head record: the first good block of the first store partition.
//
// Behind it lie the store's data. So a record is written into this very block or nowhere: a writer that went
// on to the next block, as others do, would put it over data.
#ifndef TARVOLIN_STORE_HEAD_BLOCK_H
#define TARVOLIN_STORE_HEAD_BLOCK_H

#include <cstdint>

#include "mtd/partitions.h"
#include "store/head_record.h"

// Opens the first store partition for writing at its first good block. Returns null, logged under the
// operation name `op`.
[[nodiscard]] mtd_write_ctx* tarv_open_head_block(const char* op);

// Reads the record from the first good block of the first store partition; a block that cannot be read is not
// passed over. Returns the position just behind that block, in bytes, or -1, logged where the fault has a
// line of its own.
[[nodiscard]] int64_t tarv_read_head_block(store_head_record& record);

// Writes `record` into its block, filled up with zero bytes, and then erases the rest of the partition.
// Returns 0, or -1, logged, when the block did not take the record: no other block was changed then. An erase
// that fails behind the record is logged only: whatever is written there is erased again.
[[nodiscard]] int vexo_tarv_init_head_flash(const store_head_record& record);

#endif
