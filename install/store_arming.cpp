#include "install/store_arming.h"

#include <cstring>

#include "main/run/log.h"
#include "main/run/record.h"
#include "mtd/block_io.h"
#include "package/images.h"
#include "store/head_block.h"
#include "store/partition_groups.h"
#include "store/stream.h"

namespace {

constexpr const char* kOp = "vexo_tarv_install_data";

// Lists the package's store-group images; the head check has made sure that they fit.
void list_images() {
  for (const package_entry& entry : image_table()) {
    if (group_of(entry) != kStoreGroup || ghead->image_num == kStoreImagesMax) continue;
    store_head_image& image = ghead->images[ghead->image_num++];
    // Only the text: bytes that a package has behind the NUL stay out of the record.
    const std::string_view name = field_text(entry.name);
    memcpy(image.name, name.data(), name.size());
    image.size = entry.size;
    image.size_algin = entry.size + store_padding(entry.size);
    image.crc = entry.crc;
  }
}

void fill_record() {
  TARV_LOG(kOp, "head->image_number: %d\n", ginfo->head.image_num);
  ghead->magic = TARV_RESTORE_MAGIC;
  ghead->status = TARV_STATUS_RESTORE;
  for (const uint32_t saved : ghead->ptsavesize) {
    if (static_cast<int32_t>(saved) > 0) ++ghead->valid_pt;
  }
  list_images();
}

void log_record() {
  TARV_LOG(kOp, "magic: %x\n", ghead->magic);
  TARV_LOG(kOp, "status: %d\n", ghead->status);
  TARV_LOG(kOp, "valid_pt: %d\n", ghead->valid_pt);
  for (const uint32_t saved : ghead->ptsavesize) TARV_LOG(kOp, "ptsavesize: %d\n", saved);
  TARV_LOG(kOp, "image_num: %d\n", ghead->image_num);
  TARV_LOG(kOp, "rmrfnvbak: %d\n", ghead->rmrfnvbak);
  for (uint32_t i = 0; i < ghead->image_num; ++i) {
    const store_head_image& image = ghead->images[i];
    TARV_LOG(kOp, "name: %s, size: %d, size_algin: %d, crc: %x\n", image.name, image.size, image.size_algin,
             image.crc);
  }
}

// Restoring software looks in the first good block only, so a record elsewhere is no success. Returns -1.
int misplaced() {
  TARV_LOG(kOp, "store head record is not in its place\n");
  return -1;
}

// Writes the record into its block; the package data behind it stay. The block must be the one that this run
// left for it. If the driver has marked that one bad meanwhile, the first good block is the first block of
// the data. Returns 0 or -1.
int write_record() {
  mtd_write_ctx* const ctx = tarv_open_head_block(kOp);
  if (ctx == nullptr) return -1;
  const int64_t end = mtd_current_pos(ctx->fd) + ctx->partition->erase_size;
  const bool in_place = end == ginfo->store_data_start && mtd_write_in_place(*ctx, ghead, sizeof *ghead) == 0;
  const bool closed = mtd_write_close(ctx) == 0;
  if (!closed) TARV_LOG(kOp, "mtd_write_close error\n");
  if (!in_place) return misplaced();
  return closed ? 0 : -1;
}

// Returns 0 when a reader finds the record, as it was written, in the block before this run's data.
int verify_record() {
  store_head_record found = {};
  const bool in_place = tarv_read_head_block(found) == ginfo->store_data_start;
  return in_place && memcmp(&found, ghead, sizeof found) == 0 ? 0 : misplaced();
}

}  // namespace

int vexo_tarv_arm_store() {
  fill_record();
  log_record();
  return write_record() == 0 ? verify_record() : -1;
}
