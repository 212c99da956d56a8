// Room in the store: what each store partition can take, and seeking in a partition by data position.
//
// A data position counts the bytes of good blocks only.
#ifndef TARVOLIN_STORE_SPACE_H
#define TARVOLIN_STORE_SPACE_H

#include <cstdint>

#include "mtd/partitions.h"

constexpr uint32_t kNoValidSize = UINT32_MAX;  // never a size: sizes are whole erase blocks

// Usable bytes of the partition `name`: its good blocks less the head block (first store partition only) and
// its fixed reserve; 0 when these take all. Returns kNoValidSize, logged, when the partition cannot be
// examined.
[[nodiscard]] uint32_t get_partition_valid_size(const char* name);

// Fills the run's store capacities and returns their sum in bytes. The stream cannot pass over a partition
// that cannot be examined: the store ends before it.
[[nodiscard]] uint32_t vexo_tarv_get_partition_valid_size();

// Puts the descriptor of a partition (`size`, `erase_size` in bytes) at data position `position`, in bytes.
// The block found there may itself be bad: transfers pass over it. Returns 0, or -1, logged unless the seek
// itself failed.
[[nodiscard]] int mtd_seek_pos(uint32_t size, uint32_t erase_size, int fd, uint32_t position);
[[nodiscard]] int mtd_seek_write_pos(const mtd_write_ctx& ctx, uint32_t position);
[[nodiscard]] int mtd_seek_read_pos(const mtd_read_ctx& ctx, uint32_t position);

#endif
