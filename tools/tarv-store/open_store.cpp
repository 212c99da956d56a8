#include "tools/tarv-store/open_store.h"

#include <algorithm>
#include <cstring>

#include "mtd/block_io.h"
#include "mtd/device.h"
#include "store/partition_groups.h"
#include "tools/common/printable.h"
#include "tools/common/refusal.h"
#include "tools/tarv-store/block_reader.h"
#include "tools/tarv-store/dump_hints.h"
#include "tools/tarv-store/record_faults.h"

namespace tools::tarv_store {

namespace {

uint32_t first_good_block(const store_partition& partition) {
  const auto found = std::find(partition.bad.begin(), partition.bad.end(), false);
  return static_cast<uint32_t>(found - partition.bad.begin());
}

store_partition examine(const mtd_partition& entry) {
  if (entry.erase_size < sizeof(store_head_record)) {
    throw refusal("partition " + in_quotes(entry.name) + " has erase blocks of " +
                  std::to_string(entry.erase_size) + " bytes");
  }
  const read_handle ctx = open_partition(entry);
  store_partition partition = {&entry, std::vector<bool>(entry.size / entry.erase_size), 0, 0};
  for (size_t i = 0; i < partition.bad.size(); ++i) {
    const int answer = mtd_device_is_bad(ctx->fd, static_cast<int64_t>(i) * entry.erase_size);
    // As for the updater: without the marks nobody knows where the data lie.
    if (answer < 0) throw system_refusal("cannot tell the bad blocks of " + in_quotes(entry.name));
    partition.bad[i] = answer > 0;
  }
  return partition;
}

std::vector<store_partition> find_partitions() {
  const int count = mtd_load_partitions();
  if (count < 0) throw system_refusal("cannot read the partition list; for dumps, give --dumps FOLDER");
  std::vector<store_partition> found;
  for (const char* const name : store_list) {
    const mtd_partition* const entry = mtd_find_partition(name);
    if (entry == nullptr) break;
    found.push_back(examine(*entry));
  }
  if (found.empty()) throw refusal("there is no partition " + in_quotes(store_list[0]));
  return found;
}

// Reads the start of block `block`, and of no other one. Returns false when it does not read cleanly.
bool read_record(const mtd_partition& partition, uint32_t block, store_head_record& record) {
  const read_handle ctx = open_partition(partition);
  mtd_ecc_counters before = {};
  mtd_ecc_counters after = {};
  return mtd_device_ecc(ctx->fd, before) == 0 &&
         mtd_seek_to(ctx->fd, static_cast<int64_t>(block) * partition.erase_size) &&
         mtd_device_read(ctx->fd, &record, sizeof record) == static_cast<ssize_t>(sizeof record) &&
         mtd_device_ecc(ctx->fd, after) == 0 && before.failed == after.failed;
}

std::string remark_on(const store_head_record& found) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&found);
  if (std::all_of(bytes, bytes + sizeof found, [](uint8_t byte) { return byte == 0xFF; })) return "erased";
  if (memcmp(bytes, "UBI#", 4) == 0) return "a UBI volume";
  return "something else, which begins with " + in_hex(found.magic);
}

void look_at_record(store_view& store) {
  const store_partition& first = store.partitions[0];
  if (store.head_block == first.bad.size()) {
    store.remark = "every block is bad";
  } else if (!read_record(*first.entry, store.head_block, store.record)) {
    store.remark = "unreadable";
  } else if (store.record.magic == TARV_RESTORE_MAGIC) {
    store.form = record_form::armed;
  } else if (store.record.magic == TARV_STORING_MAGIC) {
    store.form = record_form::storing;
  } else {
    store.remark = remark_on(store.record) + hint_on_record(store);
  }
}

}  // namespace

store_view open_store() {
  store_view store;
  store.partitions = find_partitions();
  store_partition& first = store.partitions[0];
  store.head_block = first_good_block(first);
  first.first_block = std::min(store.head_block + 1, static_cast<uint32_t>(first.bad.size()));
  look_at_record(store);
  try {
    if (store.form == record_form::armed) judge_record(store);
  } catch (const refusal& fault) {
    store.fault = fault.what();
  }
  return store;
}

}  // namespace tools::tarv_store
