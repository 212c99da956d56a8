#include "install/store_arming.h"

#include <cstring>

#include "main/run/log.h"
#include "main/run/record.h"
#include "mtd/block_io.h"
#include "package/images.h"
#include "store/partition_access.h"
#include "store/partition_groups.h"
#include "store/space.h"
#include "store/stream.h"

namespace {

constexpr const char* kOp = "vexo_tarv_install_data";

// Lists the package's store-group images; the head check has made sure that they fit.
void list_images() {
  for (const package_entry& entry : image_table()) {
    if (group_of(entry) != kStoreGroup || ghead->image_num == kStoreImagesMax) continue;
    store_head_image& image = ghead->images[ghead->image_num++];
    memcpy(image.name, entry.name, sizeof image.name);
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

// Writes the record into the first block; the package data behind it stays. Returns 0 or -1.
int write_record() {
  mtd_write_ctx* const ctx = open_for_writing(kOp, store_list[0]);
  if (ctx == nullptr) return -1;
  const bool taken = mtd_write_data(*ctx, ghead, sizeof *ghead) == sizeof *ghead;
  if (!taken) TARV_LOG(kOp, "%s[%d]mtd_write_data error\n", kOp, __LINE__);
  const bool closed = mtd_write_close(ctx) == 0;
  if (!closed) TARV_LOG(kOp, "mtd_write_close error\n");
  return taken && closed ? 0 : -1;
}

// True when the first block that is not marked bad holds the record. The read must come from that very block:
// transfers pass over a block that cannot be read, and the record may have gone past it the same way, onto
// package data.
bool stands_in_first_block(mtd_read_ctx& ctx) {
  if (mtd_seek_read_pos(ctx, 0) != 0) return false;
  const int64_t first_block = mtd_current_pos(ctx.fd);
  store_head_record found = {};
  if (mtd_read_data(ctx, &found, sizeof found) != sizeof found) return false;
  if (mtd_current_pos(ctx.fd) != first_block + ctx.partition->erase_size) return false;
  return memcmp(&found, ghead, sizeof found) == 0;
}

// A first block that no longer takes a write makes the write go on to the next one, where nobody looks for
// the record.
int verify_record() {
  mtd_read_ctx* const ctx = vexo_tarv_mtd_open_read(store_list[0]);
  const bool in_place = ctx != nullptr && stands_in_first_block(*ctx);
  vexo_tarv_mtd_close_read(ctx);
  if (in_place) return 0;
  TARV_LOG(kOp, "store head record is not in its place\n");
  return -1;
}

}  // namespace

int vexo_tarv_arm_store() {
  fill_record();
  log_record();
  return write_record() == 0 ? verify_record() : -1;
}
