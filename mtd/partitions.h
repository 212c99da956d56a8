// The module's MTD partitions: the table read from /proc/mtd, lookup by name, and the two handles through
// which a partition is read and written. The transfers themselves are in mtd/block_io.h.
//
// This layer knows no run: it reports on the console, and its callers log.
#ifndef TARVOLIN_MTD_PARTITIONS_H
#define TARVOLIN_MTD_PARTITIONS_H

#include <cstdint>
#include <cstdlib>
#include <memory>

// One partition. Entries live in the process-wide table; a load refills them in place, so that pointers stay
// valid.
struct mtd_partition {
  int32_t index = -1;       // the number in "/dev/mtd%d"; -1 in an empty slot
  uint32_t size = 0;        // bytes
  uint32_t erase_size = 0;  // bytes of an erase block, the unit of all transfers
  uint32_t write_size = 0;  // bytes of a page
  char name[64] = "";       // empty in an empty slot
};

constexpr int32_t kPartitionSlots = 64;

// The process-wide table. Partition N stands in slot N.
struct mtd_partition_table {
  mtd_partition entries[kPartitionSlots];
  int32_t slot_count = 0;        // 0 before the first load
  int32_t partition_count = -1;  // found by the last load; -1 before the first one and after one that failed
};

struct free_deleter {
  void operator()(void* memory) const { free(memory); }
};

// A partition open for reading. Owned by whoever opened it, closed with mtd_read_close.
struct mtd_read_ctx {
  const mtd_partition* partition = nullptr;  // in the table
  std::unique_ptr<uint8_t[]> block;          // last block of a buffered read, erase_size bytes
  uint32_t consumed = 0;                     // bytes of `block` handed out; erase_size when none are left
  int fd = -1;
};

// A partition open for writing. Owned by whoever opened it, closed with mtd_write_close.
struct mtd_write_ctx {
  const mtd_partition* partition = nullptr;  // in the table
  std::unique_ptr<uint8_t[]> block;          // collects data for one erase block, erase_size bytes
  uint32_t stored = 0;                       // bytes waiting in `block`
  int fd = -1;
  std::unique_ptr<uint32_t, free_deleter> bad_blocks;  // byte offsets of the blocks skipped by writes
  int32_t bad_capacity = 0;
  int32_t bad_count = 0;
};

// Reads the partition list into the table. Returns the number of partitions found, or -1 with errno when the
// list cannot be read or a partition does not answer. Lines with a device number outside 0 to 63 are skipped.
[[nodiscard]] int mtd_load_partitions();

// The entry of the last load with exactly this name, or null.
[[nodiscard]] const mtd_partition* mtd_find_partition(const char* name);

// Asks the device for its geometry, in bytes; a null pointer skips that value. Returns 0, or -1 with errno.
[[nodiscard]] int mtd_partition_info(const mtd_partition& partition, uint32_t* size, uint32_t* erase_size,
                                     uint32_t* write_size);

// Opens `partition` at byte 0 with an empty buffer. Returns null with errno on failure, nothing left
// allocated.
[[nodiscard]] mtd_read_ctx* mtd_read_open(const mtd_partition& partition);
[[nodiscard]] mtd_write_ctx* mtd_write_open(const mtd_partition& partition);

// Closes and frees the context. One for writing is closed with mtd_write_close (mtd/block_io.h), which also
// writes out what it still holds.
void mtd_read_close(mtd_read_ctx* ctx);

// Notes that the writer passed over the block at `offset` (bytes). The list is informative: when it cannot
// grow, the entry is dropped.
void mtd_note_bad_block(mtd_write_ctx& ctx, uint32_t offset);

#endif
