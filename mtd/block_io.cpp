#include "mtd/block_io.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/retry.h"
#include "mtd/device.h"

namespace {

// A second attempt helps against a disturbed program; more would only wear out a block that is dying.
constexpr int kWriteAttempts = 2;  // per block

unsigned long printable(uint32_t offset) {
  return offset;
}

// Reads one whole block at `position`. errno tells why when it is false; a short read leaves errno alone.
bool read_at(int fd, int64_t position, uint8_t* data, uint32_t length) {
  if (!mtd_seek_to(fd, position)) return false;
  return retry_interrupted([&] { return mtd_device_read(fd, data, length); }) == static_cast<ssize_t>(length);
}

bool write_at(int fd, int64_t position, const uint8_t* data, uint32_t length) {
  if (!mtd_seek_to(fd, position)) return false;
  return retry_interrupted([&] { return mtd_device_write(fd, data, length); }) ==
         static_cast<ssize_t>(length);
}

// Reads the block back and compares it with what was meant to be there.
bool verify_block(const mtd_write_ctx& ctx, uint32_t position, const uint8_t* data) {
  const uint32_t erase_size = ctx.partition->erase_size;
  // The second erase block of memory that an update takes; it lives for this comparison only.
  const std::unique_ptr<uint8_t[]> found(new (std::nothrow) uint8_t[erase_size]);
  if (!found) errno = ENOMEM;
  if (!found || !read_at(ctx.fd, position, found.get(), erase_size)) {
    printf("mtd: re-read error at 0x%08lx (%s)\n", printable(position), strerror(errno));
    return false;
  }
  if (memcmp(found.get(), data, erase_size) != 0) {
    printf("mtd: verification error at 0x%08lx (%s)\n", printable(position), strerror(errno));
    return false;
  }
  return true;
}

// One attempt: erase, program, read back. A position inside a block is not erased.
bool try_write_block(const mtd_write_ctx& ctx, uint32_t position, const uint8_t* data) {
  const uint32_t erase_size = ctx.partition->erase_size;
  if (position % erase_size == 0 && mtd_device_erase(ctx.fd, position, erase_size) != 0) {
    printf("mtd: erase failure at 0x%08lx (%s)\n", printable(position), strerror(errno));
    return false;
  }
  // Not the end: a program that reports an error may have landed whole. The read-back decides.
  if (!write_at(ctx.fd, position, data, erase_size)) {
    printf("mtd: write error at 0x%08lx (%s)\n", printable(position), strerror(errno));
  }
  return verify_block(ctx, position, data);
}

// True when the block at `position` must not be written. The kernel would program a bad block without an
// error. A device without a bad-block table answers EOPNOTSUPP, and its blocks are all good.
bool is_unwritable(const mtd_write_ctx& ctx, uint32_t position) {
  if (position % ctx.partition->erase_size != 0) return false;
  const int result = mtd_device_is_bad(ctx.fd, position);
  if (result == 0 || (result == -1 && errno == EOPNOTSUPP)) return false;
  fprintf(stderr, "mtd: not writing bad block at 0x%08lx (ret %d): %s\n", printable(position), result,
          strerror(errno));
  return true;
}

// All attempts on one block. On false the block is given up. The last erase leaves no half-written data for a
// reader to trust; the block is not marked bad. docs/store-format.md says what that means for readers.
bool write_block_at(const mtd_write_ctx& ctx, uint32_t position, const uint8_t* data) {
  for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
    if (!try_write_block(ctx, position, data)) continue;
    if (attempt > 0) printf("mtd: wrote block after %d retries\n", attempt);
    return true;
  }
  printf("mtd: skipping write block at 0x%08lx\n", printable(position));
  (void)!mtd_device_erase(ctx.fd, position, ctx.partition->erase_size);
  return false;
}

// True when a block at `position` still ends inside the partition. The comparison is
// signed, so a partition of 2 GiB or more takes no data.
bool fits(const mtd_partition& partition, uint32_t position) {
  return static_cast<int32_t>(position + partition.erase_size) <= static_cast<int32_t>(partition.size);
}

// Where the next write goes, in bytes, or -1, reported.
int64_t write_position(const mtd_write_ctx& ctx) {
  const int64_t position = mtd_current_pos(ctx.fd);
  if (position < 0) printf("mtd: write_block: couldn't SEEK_CUR: %s\n", strerror(errno));
  return position;
}

// Writes one erase block from `data` into the next block that takes it. Returns 0 or -1.
[[nodiscard]] int write_block(mtd_write_ctx& ctx, const uint8_t* data) {
  const int64_t start = write_position(ctx);
  if (start < 0) return -1;
  for (auto position = static_cast<uint32_t>(start); fits(*ctx.partition, position);
       position += ctx.partition->erase_size) {
    if (!is_unwritable(ctx, position) && write_block_at(ctx, position, data)) return 0;
    mtd_note_bad_block(ctx, position);
  }
  errno = ENOSPC;
  return -1;
}

enum class block_state { good, passed_over, failed };

// What the ECC counters say about the read just made at `position`. Only they tell: the kernel returns an
// uncorrectable page with the full count. A new error moves the baseline, so that it counts once.
block_state judge_ecc(int fd, int64_t position, mtd_ecc_counters& baseline) {
  mtd_ecc_counters now = {};
  if (mtd_device_ecc(fd, now) != 0) {
    printf("mtd: ECCGETSTATS error (%s)\n", strerror(errno));
    return block_state::failed;
  }
  if (now.failed == baseline.failed) return block_state::good;
  printf("mtd: ECC errors (%d soft, %d hard) at 0x%08llx\n",
         static_cast<int>(now.corrected - baseline.corrected), static_cast<int>(now.failed - baseline.failed),
         static_cast<unsigned long long>(position));
  baseline = now;
  return block_state::passed_over;
}

// Reads the block at `position` and judges it.
block_state read_block_at(const mtd_read_ctx& ctx, int64_t position, uint8_t* data,
                          mtd_ecc_counters& baseline) {
  const auto shown = static_cast<unsigned long long>(position);
  if (!read_at(ctx.fd, position, data, ctx.partition->erase_size)) {
    printf("mtd: read error at 0x%08llx (%s)\n", shown, strerror(errno));
    return block_state::passed_over;
  }
  const block_state ecc = judge_ecc(ctx.fd, position, baseline);
  if (ecc != block_state::good || position % ctx.partition->erase_size != 0) return ecc;
  // A block marked bad can read cleanly all the same. The writer passed over it, so its bytes are stale.
  const int bad = mtd_device_is_bad(ctx.fd, position);
  if (bad == 0) return block_state::good;
  fprintf(stderr, "mtd: MEMGETBADBLOCK returned %d at 0x%08llx: %s\n", bad, shown, strerror(errno));
  return block_state::passed_over;
}

// Reads the next block that can be trusted into `data`, erase_size bytes. Returns 0 or -1.
[[nodiscard]] int read_block(const mtd_read_ctx& ctx, uint8_t* data) {
  mtd_ecc_counters baseline = {};
  if (mtd_device_ecc(ctx.fd, baseline) != 0) {
    printf("mtd: ECCGETSTATS error (%s)\n", strerror(errno));
    return -1;
  }
  int64_t position = mtd_current_pos(ctx.fd);
  if (position < 0) {
    printf("mtd: read_block: couldn't SEEK_CUR: %s\n", strerror(errno));
    return -1;
  }
  for (; position + ctx.partition->erase_size <= ctx.partition->size; position += ctx.partition->erase_size) {
    const block_state state = read_block_at(ctx, position, data, baseline);
    if (state != block_state::passed_over) return state == block_state::good ? 0 : -1;
  }
  errno = ENOSPC;
  return -1;
}

// Completes the buffered block with zero bytes and writes it: flash takes whole pages, and the read-back
// compares whole blocks. Returns 0 or -1.
[[nodiscard]] int flush_block(mtd_write_ctx& ctx) {
  if (ctx.stored == 0) return 0;
  memset(ctx.block.get() + ctx.stored, 0, ctx.partition->erase_size - ctx.stored);
  if (write_block(ctx, ctx.block.get()) != 0) return -1;
  ctx.stored = 0;
  return 0;
}

void erase_or_report(const mtd_write_ctx& ctx, uint32_t position) {
  if (mtd_device_is_bad(ctx.fd, position) > 0) {
    printf("mtd: not erasing bad block at 0x%08lx\n", printable(position));
  } else if (mtd_device_erase(ctx.fd, position, ctx.partition->erase_size) != 0) {
    printf("mtd: erase failure at 0x%08lx\n", printable(position));
  }
}

}  // namespace

int64_t mtd_current_pos(int fd) {
  return retry_interrupted([&] { return mtd_device_seek(fd, 0, SEEK_CUR); });
}

bool mtd_seek_to(int fd, int64_t position) {
  const auto target = static_cast<off_t>(position);
  return retry_interrupted([&] { return mtd_device_seek(fd, target, SEEK_SET); }) == target;
}

int64_t mtd_read_data(mtd_read_ctx& ctx, void* data, uint32_t length) {
  auto* out = static_cast<uint8_t*>(data);
  const uint32_t erase_size = ctx.partition->erase_size;
  uint32_t wanted = length;
  while (wanted > 0) {
    const uint32_t n = std::min(wanted, erase_size - ctx.consumed);
    memcpy(out, ctx.block.get() + ctx.consumed, n);
    ctx.consumed += n;
    out += n;
    wanted -= n;
    // Whole blocks go straight to the caller, without a copy through the buffer.
    for (; wanted >= erase_size; wanted -= erase_size, out += erase_size) {
      if (read_block(ctx, out) != 0) return -1;
    }
    if (wanted == 0) break;
    if (read_block(ctx, ctx.block.get()) != 0) return -1;
    ctx.consumed = 0;
  }
  return length;
}

int64_t mtd_write_data(mtd_write_ctx& ctx, const void* data, uint32_t length) {
  const auto* in = static_cast<const uint8_t*>(data);
  const uint32_t erase_size = ctx.partition->erase_size;
  uint32_t left = length;
  while (left > 0) {
    if (ctx.stored > 0 || left < erase_size) {
      const uint32_t n = std::min(left, erase_size - ctx.stored);
      memcpy(ctx.block.get() + ctx.stored, in, n);
      ctx.stored += n;
      in += n;
      left -= n;
    }
    if (ctx.stored == erase_size) {
      if (write_block(ctx, ctx.block.get()) != 0) return -1;
      ctx.stored = 0;
    }
    // Whole blocks go straight to flash, without a copy through the buffer.
    for (; ctx.stored == 0 && left >= erase_size; left -= erase_size, in += erase_size) {
      if (write_block(ctx, in) != 0) return -1;
    }
  }
  return length;
}

int mtd_write_in_place(mtd_write_ctx& ctx, const void* data, uint32_t length) {
  const int64_t position = write_position(ctx);
  if (position < 0) return -1;
  const auto block = static_cast<uint32_t>(position);
  memcpy(ctx.block.get(), data, length);
  memset(ctx.block.get() + length, 0, ctx.partition->erase_size - length);
  if (fits(*ctx.partition, block) && !is_unwritable(ctx, block) &&
      write_block_at(ctx, block, ctx.block.get())) {
    return 0;
  }
  errno = EIO;
  return -1;
}

int64_t mtd_erase_blocks(mtd_write_ctx& ctx, int32_t count) {
  if (flush_block(ctx) != 0) return -1;
  const int64_t current = mtd_current_pos(ctx.fd);
  if (current < 0) {
    printf("mtd_erase_blocks: couldn't SEEK_CUR: %s\n", strerror(errno));
    return -1;
  }
  const uint32_t erase_size = ctx.partition->erase_size;
  auto position = static_cast<uint32_t>(current);
  if (position % erase_size != 0) {
    // A failed transfer can leave the position inside a block that was just written. Do not erase that block.
    printf("pos is not 0\n");
    position += erase_size - position % erase_size;
  }
  const uint32_t available =
      position < ctx.partition->size ? (ctx.partition->size - position) / erase_size : 0;
  const uint32_t wanted = count < 0 ? available : static_cast<uint32_t>(count);
  if (wanted > available) {
    errno = ENOSPC;
    return -1;
  }
  for (uint32_t i = 0; i < wanted; ++i, position += erase_size) erase_or_report(ctx, position);
  return position;
}

int mtd_write_close(mtd_write_ctx* ctx) {
  const std::unique_ptr<mtd_write_ctx> owner(ctx);
  // An erase of no blocks flushes the buffer and nothing else.
  const bool flushed = mtd_erase_blocks(*ctx, 0) != -1;
  const bool closed = mtd_device_close(ctx->fd) == 0;
  return flushed && closed ? 0 : -1;
}
