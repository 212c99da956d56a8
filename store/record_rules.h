// The rules of an armed head record: what this updater never writes, every reader of the store refuses.
#ifndef TARVOLIN_STORE_RECORD_RULES_H
#define TARVOLIN_STORE_RECORD_RULES_H

#include <array>
#include <cstdint>

#include "store/head_record.h"
#include "store/partition_groups.h"

// What one store partition can hold of the stream.
struct store_room {
  bool present = false;
  uint64_t bytes = 0;  // in its good blocks, in the first partition without the head record's
};
using store_rooms = std::array<store_room, kStorePartitions>;

// Bytes of the stream in each store partition.
using store_counts = std::array<uint64_t, kStorePartitions>;

// What is wrong with a record, in a sentence that may quote hostile text.
struct store_fault {
  char text[256] = "";
};

// Judges `record`, of which nothing is trusted, against the room there is. Returns 0 and fills `counts`, or
// -1 with the first fault.
[[nodiscard]] int judge_store_record(const store_head_record& record, const store_rooms& rooms,
                                     store_counts& counts, store_fault& fault);

#endif
