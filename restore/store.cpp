#include "restore/store.h"

#include <algorithm>
#include <cstring>

#include "restore/fault.h"

namespace restore {

namespace {

constexpr int kRecordReads = 3;  // of a record that does not read cleanly

int find_parts(store& found) {
  for (const char* const name : store_list) {
    const mtd_partition* const entry = mtd_find_partition(name);
    if (entry == nullptr) break;
    if (!has_sound_geometry(*entry)) return -1;
    found.parts[found.part_count++].entry = entry;
  }
  if (found.part_count > 0) return 0;
  return fault("there is no partition \"%s\" in /proc/mtd: is the flash driver loaded?", store_list[0]);
}

// Goes to the first block that is not marked bad; past the end when there is none.
int find_head_block(const device& first, uint32_t& block) {
  for (block = 0; block < first.blocks(); ++block) {
    const int bad = is_marked_bad(first, block);
    if (bad <= 0) return bad;
  }
  return 0;
}

const char* remark_on(const store_head_record& record) {
  if (record.magic == TARV_STORING_MAGIC) return "a record in its storing form, never to be acted on";
  if (is_erased(reinterpret_cast<const uint8_t*>(&record), sizeof record)) return "an erased block";
  if (memcmp(&record, "UBI#", 4) == 0) return "a UBI volume";
  return "something that is no record";
}

int count_room(const store_part& part, store_room& room) {
  const device open(*part.entry, mtd_access::read_only);
  uint32_t good = 0;
  if (!open.ok() || count_good_blocks(open, part.first_block, good) != 0) return -1;
  room = {true, uint64_t{good} * part.entry->erase_size};
  return 0;
}

}  // namespace

record_form find_store(store& found, const char*& remark) {
  if (find_parts(found) != 0) return record_form::unknown;
  const device first(*found.parts[0].entry, mtd_access::read_only);
  if (!first.ok() || find_head_block(first, found.head_block) != 0) return record_form::unknown;
  remark = "no block that is not marked bad";
  if (found.head_block == first.blocks()) return record_form::none;
  found.parts[0].first_block = found.head_block + 1;
  const int64_t place = static_cast<int64_t>(found.head_block) * first.erase_size();
  bool clean = false;
  for (int i = 0; i < kRecordReads && !clean; ++i) {
    if (read_bytes(first, place, &found.record, sizeof found.record, clean) != 0) return record_form::unknown;
  }
  remark = clean ? remark_on(found.record) : "a block that cannot be read";
  return clean && found.record.magic == TARV_RESTORE_MAGIC ? record_form::armed : record_form::none;
}

int judge_store(store& found) {
  store_rooms rooms;
  for (size_t i = 0; i < found.part_count; ++i) {
    if (count_room(found.parts[i], rooms[i]) != 0) return -1;
  }
  store_counts counts = {};
  store_fault why;
  if (judge_store_record(found.record, rooms, counts, why) != 0) return fault("%s", why.text);
  for (size_t i = 0; i < found.part_count; ++i) {
    store_part& part = found.parts[i];
    part.bytes = counts[i];
    const size_t bytes = part.entry->size / part.entry->erase_size / 8 + 1;
    part.holds = allocate(bytes);
    if (!part.holds) return fault("there is no memory for a list of the blocks of \"%s\"", part.entry->name);
    memset(part.holds.get(), 0, bytes);
  }
  return 0;
}

uint64_t stream_length(const store& from) {
  uint64_t length = 0;
  for (const store_part& part : from.parts) length += part.bytes;
  return length;
}

bool is_superseded(const store_head_record& record, uint32_t image) {
  for (uint32_t i = image + 1; i < record.image_num; ++i) {
    if (strcmp(record.images[i].name, record.images[image].name) == 0) return true;
  }
  return false;
}

uint32_t largest_block(const store& from) {
  uint32_t largest = 0;
  for (size_t i = 0; i < from.part_count; ++i) largest = std::max(largest, from.parts[i].entry->erase_size);
  return largest;
}

}  // namespace restore
