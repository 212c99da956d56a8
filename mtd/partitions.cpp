#include "mtd/partitions.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "mtd/device.h"

namespace {

constexpr size_t kListCapacity = 2048;  // of the partition list's text; what goes beyond is not seen

mtd_partition_table table;

// Reads one line of the partition list. Returns false when it does not describe a partition, or lacks its
// closing quote: a list that is longer than what is read may be cut within a name, and "recoveryfs" must not
// turn into "recovery".
bool parse_line(const char* line, mtd_partition& entry) {
  const char* const quote = strchr(line, '"');
  if (quote == nullptr || strchr(quote + 1, '"') == nullptr) return false;
  return sscanf(line, "mtd%d: %x %x \"%63[^\"]", &entry.index, &entry.size, &entry.erase_size, entry.name) ==
         4;
}

// Empties every slot but keeps its geometry: a context that is open on a slot must go on working if the load
// then fails.
void reset_table() {
  table.slot_count = kPartitionSlots;
  table.partition_count = -1;
  for (mtd_partition& slot : table.entries) {
    slot.index = -1;
    slot.name[0] = '\0';
  }
}

// Stores what the line describes, if it has a slot. Returns the number of partitions added, or -1.
int load_line(const char* line) {
  mtd_partition entry;
  if (!parse_line(line, entry)) return 0;
  if (entry.index < 0 || entry.index >= table.slot_count) return 0;
  mtd_partition& slot = table.entries[entry.index];
  slot = entry;
  if (mtd_partition_info(slot, nullptr, nullptr, &slot.write_size) != 0) {
    const int saved = errno;
    puts("mtd_partition_info failed.");
    errno = saved;
    return -1;
  }
  return 1;
}

// Allocates a context of either kind with its buffer and descriptor.
template <typename Ctx>
std::unique_ptr<Ctx> open_context(const mtd_partition& partition, mtd_access access) {
  if (partition.erase_size == 0) {
    errno = EINVAL;
    return nullptr;
  }
  std::unique_ptr<Ctx> ctx(new (std::nothrow) Ctx);
  // nothrow, because nothing here catches: a module short of memory gets a failed update, not an abort.
  if (ctx) ctx->block.reset(new (std::nothrow) uint8_t[partition.erase_size]);
  if (!ctx || !ctx->block) {
    errno = ENOMEM;
    return nullptr;
  }
  ctx->partition = &partition;
  ctx->fd = mtd_device_open(partition.index, access);
  return ctx->fd < 0 ? nullptr : std::move(ctx);
}

}  // namespace

int mtd_load_partitions() {
  reset_table();
  char text[kListCapacity];
  const ssize_t length = mtd_device_list(text, sizeof text - 1);
  if (length < 0) return -1;
  text[length] = '\0';
  int count = 0;
  for (char* line = text; *line != '\0';) {
    char* const line_end = strchrnul(line, '\n');
    const bool last = *line_end == '\0';
    *line_end = '\0';
    const int added = load_line(line);
    if (added < 0) return -1;
    count += added;
    if (last) break;
    line = line_end + 1;
  }
  table.partition_count = count;
  return count;
}

const mtd_partition* mtd_find_partition(const char* name) {
  for (const mtd_partition& partition : table.entries) {
    if (partition.index >= 0 && strcmp(partition.name, name) == 0) return &partition;
  }
  return nullptr;
}

int mtd_partition_info(const mtd_partition& partition, uint32_t* size, uint32_t* erase_size,
                       uint32_t* write_size) {
  const int fd = mtd_device_open(partition.index, mtd_access::read_only);
  if (fd < 0) return -1;
  mtd_geometry geometry = {};
  const int result = mtd_device_geometry(fd, geometry);
  const int saved = errno;
  (void)!mtd_device_close(fd);
  errno = saved;
  if (result != 0) return -1;
  if (size != nullptr) *size = geometry.size;
  if (erase_size != nullptr) *erase_size = geometry.erase_size;
  if (write_size != nullptr) *write_size = geometry.write_size;
  return 0;
}

mtd_read_ctx* mtd_read_open(const mtd_partition& partition) {
  auto ctx = open_context<mtd_read_ctx>(partition, mtd_access::read_only);
  // Nothing is buffered yet: the first read has to fetch a block.
  if (ctx) ctx->consumed = partition.erase_size;
  return ctx.release();
}

mtd_write_ctx* mtd_write_open(const mtd_partition& partition) {
  return open_context<mtd_write_ctx>(partition, mtd_access::read_write).release();
}

void mtd_read_close(mtd_read_ctx* ctx) {
  (void)!mtd_device_close(ctx->fd);
  delete ctx;
}

void mtd_note_bad_block(mtd_write_ctx& ctx, uint32_t offset) {
  if (ctx.bad_count >= ctx.bad_capacity) {
    const int32_t capacity = ctx.bad_capacity * 2 + 1;
    void* const grown = realloc(ctx.bad_blocks.get(), static_cast<size_t>(capacity) * sizeof(uint32_t));
    if (grown == nullptr) return;
    // realloc has freed the old memory already.
    (void)!ctx.bad_blocks.release();
    ctx.bad_blocks.reset(static_cast<uint32_t*>(grown));
    ctx.bad_capacity = capacity;
  }
  ctx.bad_blocks.get()[ctx.bad_count++] = offset;
}
