#include "tools/tarv-store/record_faults.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "store/partition_groups.h"
#include "tools/common/refusal.h"

namespace {

using stream_counts = std::array<uint64_t, kStorePartitions>;

void check_image(const store_head_image& image, uint32_t i) {
  const std::string what = "image " + std::to_string(i);
  if (memchr(image.name, '\0', sizeof image.name) == nullptr) throw refusal(what + ": its name has no NUL");
  if (vexo_tarv_get_pt_type(image.name) != kStoreGroup) {
    throw refusal(what + ": " + in_quotes(image.name) + " is no partition that the store has images for");
  }
  const uint64_t filled_up = uint64_t{image.size} + store_padding(image.size);
  if (image.size_algin != filled_up) {
    throw refusal(what + ", " + in_quotes(image.name) + ": size_algin is " +
                  std::to_string(image.size_algin) + ", its size of " + std::to_string(image.size) +
                  " makes it " + std::to_string(filled_up));
  }
}

// The record has no slot for the last count: it is what the others leave.
stream_counts counts_of(const store_head_record& record) {
  uint64_t total = 0;
  for (uint32_t i = 0; i < record.image_num; ++i) total += record.images[i].size_algin;
  stream_counts counts = {};
  uint64_t told = 0;
  for (size_t i = 0; i < kStoreCountSlots; ++i) told += counts[i] = record.ptsavesize[i];
  if (told > total) {
    throw refusal("the counts of the record make " + std::to_string(told) + " bytes, its images take only " +
                  std::to_string(total));
  }
  counts[kStoreCountSlots] = total - told;
  return counts;
}

uint64_t room_in(const store_partition& partition) {
  const auto good = std::count(partition.bad.begin() + partition.first_block, partition.bad.end(), false);
  return static_cast<uint64_t>(good) * partition.entry->erase_size;
}

}  // namespace

void judge_record(store_view& store) {
  const store_head_record& record = store.record;
  if (record.image_num == 0 || record.image_num > kStoreImagesMax) {
    throw refusal("the record's image_num is " + std::to_string(record.image_num) + ", not 1 to " +
                  std::to_string(kStoreImagesMax));
  }
  for (uint32_t i = 0; i < record.image_num; ++i) check_image(record.images[i], i);
  const stream_counts counts = counts_of(record);
  for (size_t i = 0; i < counts.size(); ++i) {
    const bool present = i < store.partitions.size();
    const uint64_t room = present ? room_in(store.partitions[i]) : 0;
    if (counts[i] <= room) continue;
    throw refusal("by the record " + in_quotes(store_list[i]) + " has " + std::to_string(counts[i]) +
                  " bytes of the stream, " +
                  (present ? "its good blocks hold " + std::to_string(room) : "but it is missing"));
  }
  for (size_t i = 0; i < store.partitions.size(); ++i) store.partitions[i].bytes = counts[i];
}
