// Transfers between memory and a raw NAND partition, in whole erase blocks from the context's position
// onwards.
//
// Both directions pass over bad blocks: data occupies the good blocks of a partition in order, and a reader
// finds it by passing over the same blocks. Writing erases each block, reads it back and compares; reading
// watches the ECC counters. Messages go to the console. After a failure errno tells the cause; ENOSPC means
// that the partition is used up.
#ifndef TARVOLIN_MTD_BLOCK_IO_H
#define TARVOLIN_MTD_BLOCK_IO_H

#include <cstddef>
#include <cstdint>

#include "mtd/partitions.h"

// Position of the descriptor in bytes, or -1 with errno.
[[nodiscard]] int64_t mtd_current_pos(int fd);
// Puts the descriptor at byte `position`. Returns true when it landed there.
[[nodiscard]] bool mtd_seek_to(int fd, int64_t position);

// Reads the next `length` bytes. Returns `length`, or -1; bytes copied before a failure stay delivered.
[[nodiscard]] int64_t mtd_read_data(mtd_read_ctx& ctx, void* data, uint32_t length);

// Writes `length` bytes. Returns `length`, or -1. Less than a block waits in the context until it is flushed.
[[nodiscard]] int64_t mtd_write_data(mtd_write_ctx& ctx, const void* data, uint32_t length);

// Writes `length` bytes, at most a block, filled up with zero bytes, into the very block at the position,
// never into one behind it. The buffer must be empty. Returns 0 with the position just past that block, or -1
// (EIO: it is bad or does not take the bytes) with no other block changed.
[[nodiscard]] int mtd_write_in_place(mtd_write_ctx& ctx, const void* data, uint32_t length);

// Writes out a partly filled buffer, padded with zero bytes, then erases `count` blocks from there (bad ones
// are left alone and counted; below 0: all up to the end). The position stays where the flush left it. A
// block whose erase fails is reported on the console only. Returns the byte offset just past the erased
// range, or -1 (ENOSPC: fewer blocks remain).
[[nodiscard]] int64_t mtd_erase_blocks(mtd_write_ctx& ctx, int32_t count);

// Writes out what is buffered, padded with zero bytes, then closes and frees the context, whatever failed.
// Returns 0, or -1 when the flush or the close failed.
[[nodiscard]] int mtd_write_close(mtd_write_ctx* ctx);

#endif
