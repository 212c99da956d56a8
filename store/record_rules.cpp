#include "store/record_rules.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

// Where the first fault is put into words.
struct fault_text {
  char* text;
  size_t capacity;
};

int check_image(const store_head_image& image, uint32_t i, fault_text fault) {
  if (memchr(image.name, '\0', sizeof image.name) == nullptr) {
    snprintf(fault.text, fault.capacity, "image %u: its name has no NUL", i);
    return -1;
  }
  if (vexo_tarv_get_pt_type(image.name) != kStoreGroup) {
    snprintf(fault.text, fault.capacity, "image %u: \"%s\" is no partition that the store has images for", i,
             image.name);
    return -1;
  }
  const uint64_t filled_up = uint64_t{image.size} + store_padding(image.size);
  if (image.size_algin != filled_up) {
    snprintf(fault.text, fault.capacity,
             "image %u, \"%s\": size_algin is %" PRIu32 ", its size of %" PRIu32 " makes it %" PRIu64, i,
             image.name, image.size_algin, image.size, filled_up);
    return -1;
  }
  return 0;
}

int check_images(const store_head_record& record, fault_text fault) {
  if (record.image_num == 0 || record.image_num > kStoreImagesMax) {
    snprintf(fault.text, fault.capacity, "the record's image_num is %" PRIu32 ", not 1 to %u",
             record.image_num, kStoreImagesMax);
    return -1;
  }
  for (uint32_t i = 0; i < record.image_num; ++i) {
    if (check_image(record.images[i], i, fault) != 0) return -1;
  }
  return 0;
}

// The record has no slot for the last count: it is what the others leave.
int fill_counts(const store_head_record& record, store_counts& counts, fault_text fault) {
  uint64_t total = 0;
  for (uint32_t i = 0; i < record.image_num; ++i) total += record.images[i].size_algin;
  uint64_t told = 0;
  for (size_t i = 0; i < kStoreCountSlots; ++i) told += counts[i] = record.ptsavesize[i];
  if (told > total) {
    snprintf(fault.text, fault.capacity,
             "the counts of the record make %" PRIu64 " bytes, its images take only %" PRIu64, told, total);
    return -1;
  }
  counts[kStoreCountSlots] = total - told;
  return 0;
}

int check_room(size_t i, uint64_t count, const store_room& room, fault_text fault) {
  if (count == 0 || (room.present && count <= room.bytes)) return 0;
  const int length =
      snprintf(fault.text, fault.capacity, "by the record \"%s\" has %" PRIu64 " bytes of the stream, ",
               store_list[i], count);
  const size_t used = static_cast<size_t>(length) < fault.capacity ? static_cast<size_t>(length) : 0;
  if (room.present) {
    snprintf(fault.text + used, fault.capacity - used, "its good blocks hold %" PRIu64, room.bytes);
  } else {
    snprintf(fault.text + used, fault.capacity - used, "but it is missing");
  }
  return -1;
}

}  // namespace

int judge_store_record(const store_head_record& record, const store_rooms& rooms, store_counts& counts,
                       char* fault, size_t capacity) {
  const fault_text text = {fault, capacity};
  if (check_images(record, text) != 0 || fill_counts(record, counts, text) != 0) return -1;
  for (size_t i = 0; i < counts.size(); ++i) {
    if (check_room(i, counts[i], rooms[i], text) != 0) return -1;
  }
  return 0;
}
