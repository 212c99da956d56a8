// The store: one append-only byte stream laid through the good blocks of the store partitions.
//
// The first partition's first good block holds the store head record; package bytes start behind it. A
// partition is left for the next one exactly when its capacity is reached. Every failure is logged where it
// is found.
//
// Writing: init the head (store/head_block.h), open userdata into ginfo->write_ctx, seek past the head block,
// append, close.
// Reading: open userdata into ginfo->read_ctx, seek past the head block, read with an offset that starts at
// 0, close.
#ifndef TARVOLIN_STORE_STREAM_H
#define TARVOLIN_STORE_STREAM_H

#include <cstdint>

#include "mtd/partitions.h"
#include "store/head_record.h"

// Opens the partition called `name`. Returns a context at byte 0, or null.
[[nodiscard]] mtd_write_ctx* vexo_tarv_mtd_open_write(const char* name);
[[nodiscard]] mtd_read_ctx* vexo_tarv_mtd_open_read(const char* name);

// Writes out what is buffered, padded with zero bytes, erases the rest of the partition, closes and frees the
// context. Returns 0 (also for null), or -1; the context is gone either way.
[[nodiscard]] int vexo_tarv_mtd_close_write(mtd_write_ctx* ctx);
// Closes and frees the context; null is allowed.
void vexo_tarv_mtd_close_read(mtd_read_ctx* ctx);

// Appends `length` bytes to the stream through ginfo->write_ctx, which moves on from partition to partition
// and becomes null at the end of the store. Returns 0 when all were stored, else -1.
[[nodiscard]] int vexo_tarv_mtd_append(const void* data, int32_t length);

// Reads the next `length` bytes of the stream through ginfo->read_ctx.
// `offset` is the caller's count of bytes read from the current partition, kept up to date here. Returns 0
// when all were read, else -1.
[[nodiscard]] int vexo_tarv_mtd_read(void* data, uint32_t length, uint32_t* offset);

// Bytes stored in store partition `i` (position in the store list).
[[nodiscard]] uint32_t& store_saved(int i);

#endif
