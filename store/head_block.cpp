#include "store/head_block.h"

#include "main/run/log.h"
#include "mtd/block_io.h"
#include "store/partition_access.h"
#include "store/partition_groups.h"
#include "store/space.h"
#include "store/stream.h"

namespace {

// Reads the record from the first good block of the partition. Returns the position behind that block, or -1.
int64_t read_head(mtd_read_ctx& ctx, store_head_record& record) {
  if (mtd_seek_read_pos(ctx, 0) != 0) return -1;
  const int64_t begin = mtd_current_pos(ctx.fd);
  if (begin < 0 || mtd_read_data(ctx, &record, sizeof record) != sizeof record) return -1;
  // Reads pass over a block that they cannot trust, and the next one holds package data. The position behind
  // the read shows which block the bytes came from.
  const int64_t end = mtd_current_pos(ctx.fd);
  return end == begin + ctx.partition->erase_size ? end : -1;
}

}  // namespace

mtd_write_ctx* tarv_open_head_block(const char* op) {
  mtd_write_ctx* const ctx = open_for_writing(op, store_list[0]);
  if (ctx == nullptr) return nullptr;
  if (mtd_seek_write_pos(*ctx, 0) == 0) return ctx;
  TARV_LOG(op, "%s[%d] mtd_seek_write_pos error\n", op, __LINE__);
  (void)!mtd_write_close(ctx);  // nothing was written
  return nullptr;
}

int64_t tarv_read_head_block(store_head_record& record) {
  mtd_read_ctx* const ctx = vexo_tarv_mtd_open_read(store_list[0]);
  const int64_t end = ctx == nullptr ? -1 : read_head(*ctx, record);
  vexo_tarv_mtd_close_read(ctx);
  return end;
}

int vexo_tarv_init_head_flash(const store_head_record& record) {
  mtd_write_ctx* const ctx = tarv_open_head_block(__func__);
  if (ctx == nullptr) return -1;
  // The record comes before the erase: an older armed record that stays here must keep its store.
  const bool taken = mtd_write_in_place(*ctx, &record, sizeof record) == 0;
  if (!taken) {
    TARV_LOG(__func__, "%s[%d]mtd_write_data error\n", __func__, __LINE__);
  } else if (mtd_erase_blocks(*ctx, -1) == -1) {
    TARV_LOG(__func__, "%s[%d] error erasing blocks\n", __func__, __LINE__);
  }
  if (mtd_write_close(ctx) != 0) TARV_LOG(__func__, "mtd_write_close error\n");
  return taken ? 0 : -1;
}
