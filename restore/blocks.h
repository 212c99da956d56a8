// Erase blocks of one partition, moved and judged without a word on the console.
//
// A block counts when it is not marked bad, reads whole, and reads without a new uncorrectable error. Whoever
// reads passes over the others: the rule of docs/store-format.md for the store, and for targets as well.
#ifndef TARVOLIN_RESTORE_BLOCKS_H
#define TARVOLIN_RESTORE_BLOCKS_H

#include <cstdint>
#include <memory>

#include "mtd/device.h"
#include "mtd/partitions.h"

namespace restore {

// Owned memory from malloc; null when there was none.
using buffer = std::unique_ptr<uint8_t[], free_deleter>;
[[nodiscard]] buffer allocate(size_t bytes);

// An open partition, closed with its owner.
class device {
 public:
  // Opens the partition; `ok()` tells whether that worked, with a fault if not.
  device(const mtd_partition& partition, mtd_access access);
  device(const device&) = delete;
  device& operator=(const device&) = delete;
  ~device();

  bool ok() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  const mtd_partition& partition() const { return partition_; }
  uint32_t erase_size() const { return partition_.erase_size; }
  uint32_t blocks() const { return partition_.size / partition_.erase_size; }

 private:
  const mtd_partition& partition_;
  int fd_;
};

// True when the partition's geometry is one that can be worked with: whole pages in whole blocks, and a head
// record's length at least. A fault if not.
[[nodiscard]] bool has_sound_geometry(const mtd_partition& partition);

// Asks whether `block` is marked bad: 0 or 1, or -1 with a fault.
[[nodiscard]] int is_marked_bad(const device& from, uint32_t block);

// Reads `length` bytes at `offset` bytes into the partition. `clean` tells whether they came whole and
// without a new uncorrectable error. Returns 0, or -1 with a fault when the device does not answer at all.
[[nodiscard]] int read_bytes(const device& from, int64_t offset, void* data, uint32_t length, bool& clean);

// Reads the whole of `block` into `data`, and tells by the rule above whether it counts. Returns as
// read_bytes.
[[nodiscard]] int read_block(const device& from, uint32_t block, uint8_t* data, bool& counts);

// Erases `block`; true when the device says that it did.
[[nodiscard]] bool erase_block(const device& on, uint32_t block);

// Programs `length` bytes, whole pages, from the start of `block` on. What came of it tells a read.
void program_block(const device& on, uint32_t block, const uint8_t* data, uint32_t length);

// Counts the blocks from `first` on that are not marked bad. Returns 0, or -1 with a fault.
[[nodiscard]] int count_good_blocks(const device& on, uint32_t first, uint32_t& good);

// True when all bytes are 0xFF.
[[nodiscard]] bool is_erased(const uint8_t* data, size_t length);

}  // namespace restore

#endif
