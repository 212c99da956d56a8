#include "store/space.h"

#include <cstring>

#include "main/run/log.h"
#include "main/run/record.h"
#include "mtd/block_io.h"
#include "mtd/device.h"
#include "store/partition_access.h"
#include "store/partition_groups.h"

namespace {

// Bytes at the end of a store partition that stay free for blocks that fail while they are written.
struct reserve {
  const char* name;
  uint32_t bytes;
};
constexpr reserve kReserves[] = {
    {"userdata", 0xa00000}, {"recoveryfs", 0x400000}, {"recovery", 0x200000}, {"vexonv", 0x200000}};

uint32_t reserved_bytes(const char* name) {
  for (const reserve& entry : kReserves) {
    if (strcmp(entry.name, name) == 0) return entry.bytes;
  }
  return 0;
}

// Blocks of the partition that the device calls bad. A failed query counts as good: writes find out.
uint32_t count_bad_blocks(const mtd_write_ctx& ctx, uint32_t blocks) {
  uint32_t bad = 0;
  for (uint32_t i = 0; i < blocks; ++i) {
    if (mtd_device_is_bad(ctx.fd, static_cast<int64_t>(i) * ctx.partition->erase_size) <= 0) continue;
    ++bad;
    TARV_LOG("get_partition_valid_size", "mtd: bad block\n");
  }
  return bad;
}

double megabytes(uint32_t bytes) {
  return static_cast<double>(bytes) / 1048576;
}

}  // namespace

uint32_t get_partition_valid_size(const char* name) {
  mtd_write_ctx* const ctx = open_for_writing(__func__, name);
  if (ctx == nullptr) return kNoValidSize;
  const mtd_partition* const partition = ctx->partition;
  const uint32_t blocks = partition->size / partition->erase_size;
  const uint32_t bad = count_bad_blocks(*ctx, blocks);
  TARV_LOG(__func__, "size: %d, blocks: %d, bad_blocks: %d\n", partition->size, blocks, bad);
  (void)!mtd_write_close(ctx);  // nothing was written

  // The block counts as used even though it holds 400 bytes only: data never share it.
  const uint32_t head_block = strcmp(name, store_list[0]) == 0 ? 1 : 0;
  const uint32_t unusable = bad + head_block + reserved_bytes(name) / partition->erase_size;
  const uint32_t valid = blocks > unusable ? partition->erase_size * (blocks - unusable) : 0;
  TARV_LOG(__func__, "valid_space, %s: %.1fMBytes(%d)\n", name, megabytes(valid), valid);
  return valid;
}

uint32_t vexo_tarv_get_partition_valid_size() {
  memset(ginfo->store_capacity, 0, sizeof ginfo->store_capacity);
  ginfo->store_partitions = 0;
  uint32_t total = 0;
  for (size_t i = 0; i < store_list.size(); ++i) {
    const uint32_t valid = get_partition_valid_size(store_list[i]);
    // Those behind it stay at 0: restoring software takes the partitions in order and could not pass a gap.
    if (valid == kNoValidSize) break;
    ginfo->store_capacity[i] = valid;
    ++ginfo->store_partitions;
    total += valid;
  }
  TARV_LOG(__func__, "total valid size: %.1fMBytes\n", megabytes(total));
  return total;
}

int mtd_seek_pos(uint32_t size, uint32_t erase_size, int fd, uint32_t position) {
  const uint32_t blocks = erase_size == 0 ? 0 : size / erase_size;
  const uint32_t target = erase_size == 0 ? 0 : position / erase_size;
  uint32_t good = 0;
  uint32_t bad = 0;
  for (uint32_t i = 0; i < blocks; ++i) {
    const int result = mtd_device_is_bad(fd, static_cast<int64_t>(i) * erase_size);
    if (result == -1) {
      TARV_LOG(__func__, "MEMGETBADBLOCK fails for block %u\n", i);
      return -1;
    }
    if (result == 0) {
      // A position of 0 stops at the first good block too, so that no caller starts on a bad one.
      if (++good >= target) {
        return mtd_seek_to(fd, position + static_cast<int64_t>(bad) * erase_size) ? 0 : -1;
      }
      continue;
    }
    TARV_LOG(__func__, "Skipping bad block: %u\n", i);
    ++bad;
  }
  TARV_LOG(__func__, "can seek to pos\n");
  return -1;
}

int mtd_seek_write_pos(const mtd_write_ctx& ctx, uint32_t position) {
  return mtd_seek_pos(ctx.partition->size, ctx.partition->erase_size, ctx.fd, position);
}

int mtd_seek_read_pos(const mtd_read_ctx& ctx, uint32_t position) {
  return mtd_seek_pos(ctx.partition->size, ctx.partition->erase_size, ctx.fd, position);
}
