// The store: its head record, and which blocks hold the stream.
#ifndef TARVOLIN_RESTORE_STORE_H
#define TARVOLIN_RESTORE_STORE_H

#include <array>
#include <cstdint>

#include "restore/blocks.h"
#include "store/head_record.h"
#include "store/record_rules.h"

namespace restore {

// One partition of the store.
struct store_part {
  const mtd_partition* entry = nullptr;  // in the partition table
  uint32_t first_block = 0;              // where its part of the stream begins
  uint64_t bytes = 0;                    // of the stream
  buffer holds;  // a bit for each block: set when the proof found a piece of the stream
};

struct store {
  store_head_record record = {};
  uint32_t head_block = 0;  // the record's, in the first partition
  std::array<store_part, kStorePartitions> parts;
  size_t part_count = 0;  // up to the first that the module lacks
};

enum class record_form { armed, none, unknown };

// Finds the store partitions, which the partition table must have, and reads the head record from the first
// good block of the first. `remark` says what stands there when it is not armed. `unknown`, with a fault,
// when that cannot be told.
[[nodiscard]] record_form find_store(store& found, const char*& remark);

// Judges the record and fills in how much of the stream is where. Returns 0, or -1 with a fault.
[[nodiscard]] int judge_store(store& found);

// Bytes of the stream in all.
[[nodiscard]] uint64_t stream_length(const store& from);

// True when a later image has the same name: then this one is proven, and not written.
[[nodiscard]] bool is_superseded(const store_head_record& record, uint32_t image);

// The largest erase block of the store.
[[nodiscard]] uint32_t largest_block(const store& from);

}  // namespace restore

#endif
