#include "tools/tarv-store/record_faults.h"

#include <algorithm>

#include "store/record_rules.h"
#include "tools/common/refusal.h"

namespace tools::tarv_store {

namespace {

uint64_t room_in(const store_partition& partition) {
  const auto good = std::count(partition.bad.begin() + partition.first_block, partition.bad.end(), false);
  return static_cast<uint64_t>(good) * partition.entry->erase_size;
}

}  // namespace

void judge_record(store_view& store) {
  store_rooms rooms;
  for (size_t i = 0; i < store.partitions.size(); ++i) rooms[i] = {true, room_in(store.partitions[i])};
  store_counts counts = {};
  store_fault fault;
  if (judge_store_record(store.record, rooms, counts, fault) != 0) throw refusal(fault.text);
  for (size_t i = 0; i < store.partitions.size(); ++i) store.partitions[i].bytes = counts[i];
}

}  // namespace tools::tarv_store
