// The store head record: 400 bytes at the start of the first good block of "userdata".
//
// It tells the software that restores the store which images lie there. Two forms exist: the storing form
// while a package is being written (not to be acted on), and the armed form once everything has been
// verified. docs/store-format.md has the layout for that software; its field names, `size_algin` too, are
// interfaces (see docs/architecture.md). This header includes nothing of ours.
#ifndef TARVOLIN_STORE_HEAD_RECORD_H
#define TARVOLIN_STORE_HEAD_RECORD_H

#include <cstddef>
#include <cstdint>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the record is written as it lies in memory");

constexpr uint32_t TARV_STORING_MAGIC = 0x54415240;
constexpr uint32_t TARV_RESTORE_MAGIC = 0x54415256;
constexpr uint32_t kStoreImagesMax = 8;     // entries of the image list
constexpr int kStorePartitions = 4;         // partitions that the store may run through
constexpr uint32_t kStoreCountSlots = 3;    // of these, the ones with a byte count of their own
constexpr uint32_t kStoreAlignment = 4096;  // bytes that every image fills up to in the store

// Zero bytes that follow an image of `size` bytes in the store, 0 to 4095.
constexpr uint32_t store_padding(uint32_t size) {
  return (0u - size) % kStoreAlignment;
}

// One store-group image, in the order of the package's table.
struct store_head_image {
  char name[32];        // target partition
  uint32_t size;        // bytes of image data
  uint32_t size_algin;  // bytes it takes in the store: `size` and its padding
  uint32_t crc;         // CRC-32/JAMCRC of the data
};

struct store_head_record {
  uint32_t magic;                         // TARV_STORING_MAGIC or TARV_RESTORE_MAGIC
  int32_t status;                         // run status when the record was written
  int32_t valid_pt;                       // store partitions with data, among those with a count below
  uint32_t ptsavesize[kStoreCountSlots];  // stored bytes in "userdata", "recoveryfs", "recovery"
  uint32_t image_num;                     // entries used in `images`
  uint32_t rmrfnvbak;                     // 1 when the option was given
  uint32_t vexocor_flag;                  // always 0
  uint32_t customer_flag;                 // always 0
  uint32_t userdata_flag;                 // always 0
  store_head_image images[kStoreImagesMax];
  uint32_t need_recovery;  // 1 when the images need more room than "userdata" offers
};

static_assert(sizeof(store_head_image) == 44 && offsetof(store_head_image, size_algin) == 36,
              "image list layout");
static_assert(sizeof(store_head_record) == 400 && offsetof(store_head_record, ptsavesize) == 12 &&
                  offsetof(store_head_record, image_num) == 24 &&
                  offsetof(store_head_record, rmrfnvbak) == 28 && offsetof(store_head_record, images) == 44 &&
                  offsetof(store_head_record, need_recovery) == 396,
              "store head record layout");

#endif
