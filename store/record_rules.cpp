#include "store/record_rules.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

int check_image(const store_head_image& image, uint32_t i, store_fault& fault) {
  if (memchr(image.name, '\0', sizeof image.name) == nullptr) {
    snprintf(fault.text, sizeof fault.text, "image %u: its name has no NUL", i);
    return -1;
  }
  if (vexo_tarv_get_pt_type(image.name) != kStoreGroup) {
    snprintf(fault.text, sizeof fault.text, "image %u: \"%s\" is no partition that the store has images for",
             i, image.name);
    return -1;
  }
  // In 64 bits: a size just below 4 GiB wraps when it is rounded up.
  const uint64_t filled_up = uint64_t{image.size} + store_padding(image.size);
  if (image.size_algin != filled_up) {
    snprintf(fault.text, sizeof fault.text,
             "image %u, \"%s\": size_algin is %" PRIu32 ", its size of %" PRIu32 " makes it %" PRIu64, i,
             image.name, image.size_algin, image.size, filled_up);
    return -1;
  }
  return 0;
}

int check_images(const store_head_record& record, store_fault& fault) {
  if (record.image_num == 0 || record.image_num > kStoreImagesMax) {
    snprintf(fault.text, sizeof fault.text, "the record's image_num is %" PRIu32 ", not 1 to %u",
             record.image_num, kStoreImagesMax);
    return -1;
  }
  for (uint32_t i = 0; i < record.image_num; ++i) {
    if (check_image(record.images[i], i, fault) != 0) return -1;
  }
  return 0;
}

// The record has no slot for the last count: it is what the others leave.
int fill_counts(const store_head_record& record, store_counts& counts, store_fault& fault) {
  // In 64 bits: eight hostile sizes and three hostile counts would wrap 32.
  uint64_t total = 0;
  for (uint32_t i = 0; i < record.image_num; ++i) total += record.images[i].size_algin;
  uint64_t recorded = 0;
  for (size_t i = 0; i < kStoreCountSlots; ++i) recorded += counts[i] = record.ptsavesize[i];
  if (recorded > total) {
    snprintf(fault.text, sizeof fault.text,
             "the counts of the record make %" PRIu64 " bytes, its images take only %" PRIu64, recorded,
             total);
    return -1;
  }
  counts[kStoreCountSlots] = total - recorded;
  return 0;
}

int check_room(size_t i, uint64_t count, const store_room& room, store_fault& fault) {
  if (count == 0 || (room.present && count <= room.bytes)) return 0;
  const int length =
      snprintf(fault.text, sizeof fault.text, "by the record \"%s\" has %" PRIu64 " bytes of the stream, ",
               store_list[i], count);
  const size_t used = std::min(static_cast<size_t>(length), sizeof fault.text - 1);
  if (room.present) {
    snprintf(fault.text + used, sizeof fault.text - used, "its good blocks hold %" PRIu64, room.bytes);
  } else {
    snprintf(fault.text + used, sizeof fault.text - used, "but it is missing");
  }
  return -1;
}

}  // namespace

int judge_store_record(const store_head_record& record, const store_rooms& rooms, store_counts& counts,
                       store_fault& fault) {
  if (check_images(record, fault) != 0 || fill_counts(record, counts, fault) != 0) return -1;
  for (size_t i = 0; i < counts.size(); ++i) {
    if (check_room(i, counts[i], rooms[i], fault) != 0) return -1;
  }
  return 0;
}
