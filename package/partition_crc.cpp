#include "package/partition_crc.h"

#include <algorithm>
#include <cerrno>

#include "main/run/log.h"
#include "mtd/block_io.h"
#include "package/crc32.h"
#include "store/stream.h"

int judge_image_crc(const char* op, const package_entry& entry, uint32_t index, uint32_t crc,
                    const char* what) {
  if (crc != entry.crc) {
    TARV_LOG(op, "image[%d] %s crc check failed, head crc[%x], calc crc[%x]\n", index, entry.name, entry.crc,
             crc);
    return -1;
  }
  TARV_LOG(op, "image[%d] %s %s check success\n", index, entry.name, what);
  return 0;
}

int check_partition_image(const char* op, const package_entry& entry, uint32_t index) {
  mtd_read_ctx* const ctx = vexo_tarv_mtd_open_read(entry.name);
  if (ctx == nullptr) return -1;
  uint8_t piece[kReadPiece];
  uint32_t crc = kCrcStart;
  for (uint32_t left = entry.size; left > 0;) {
    const uint32_t n = std::min(left, kReadPiece);
    if (mtd_read_data(*ctx, piece, n) != n) {
      TARV_LOG(op, "mtd_read_data error, errno: %s\n", strerror(errno));
      vexo_tarv_mtd_close_read(ctx);
      return -1;
    }
    crc = crc32_update(crc, piece, n);
    left -= n;
  }
  vexo_tarv_mtd_close_read(ctx);
  return judge_image_crc(op, entry, index, crc, "flash");
}
