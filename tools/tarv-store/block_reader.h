// The blocks of one partition in the order in which data lie in them, by the updater's own rule: bad blocks
// and blocks that do not read cleanly are passed over (mtd/block_io.h).
#ifndef TARVOLIN_TOOLS_TARV_STORE_BLOCK_READER_H
#define TARVOLIN_TOOLS_TARV_STORE_BLOCK_READER_H

#include <cstdint>
#include <memory>
#include <vector>

#include "mtd/partitions.h"

namespace tools::tarv_store {

struct read_closer {
  void operator()(mtd_read_ctx* ctx) const { mtd_read_close(ctx); }
};
using read_handle = std::unique_ptr<mtd_read_ctx, read_closer>;

// Opens `partition` for reading, or throws a refusal.
[[nodiscard]] read_handle open_partition(const mtd_partition& partition);

class block_reader {
 public:
  // Starts at block `first` of a partition whose bad blocks are `bad`, which must outlive the reader.
  block_reader(const mtd_partition& partition, const std::vector<bool>& bad, uint32_t first);

  // Reads the next block. Returns false when the partition has no more. Throws a refusal when the device
  // fails as a whole, an interruption when a signal has asked the tool to end.
  [[nodiscard]] bool next();
  // The block read last: its number and its bytes, a whole erase block.
  uint32_t number() const { return next_ - 1; }
  const std::vector<uint8_t>& data() const { return data_; }

 private:
  read_handle ctx_;
  const std::vector<bool>& bad_;
  uint32_t next_;
  std::vector<uint8_t> data_;
};

}  // namespace tools::tarv_store

#endif
