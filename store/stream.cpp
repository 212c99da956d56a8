#include "store/stream.h"

#include "main/run/log.h"
#include "main/run/record.h"
#include "mtd/block_io.h"
#include "store/partition_access.h"
#include "store/partition_groups.h"
#include "store/space.h"

namespace {

const char* list_name(int i) {
  return store_list[static_cast<size_t>(i)];
}

uint32_t capacity_of(int i) {
  return ginfo->store_capacity[static_cast<size_t>(i)];
}

// True when the stream cannot go on behind store partition `i`.
bool is_last(int i) {
  return i + 1 >= ginfo->store_partitions;
}

// The two ways to open a partition, with the line that announces it.
template <typename Ctx>
Ctx* open_partition(const char* op, const char* name, Ctx* (*open)(const char* op, const char* name)) {
  TARV_LOG(op, "%s %s\n", op, name != nullptr ? name : "(null)");
  if (name != nullptr) return open(op, name);
  TARV_LOG(op, "%s, partition is NULL\n", op);
  return nullptr;
}

constexpr const char* kAppend = "vexo_tarv_mtd_append";

// Fills store partition `i` with the first `room` bytes and finishes it. Returns 0 or -1; no context is left
// on failure to finish.
int fill_partition(int i, const uint8_t* data, uint32_t room) {
  if (mtd_write_data(*ginfo->write_ctx, data, room) != room) {
    TARV_LOG(kAppend, "%s[%d]mtd_write_data error\n", kAppend, __LINE__);
    return -1;
  }
  store_saved(i) += room;
  TARV_LOG(kAppend, "ghead->size[%d]: %d\n", i, store_saved(i));
  const int closed = vexo_tarv_mtd_close_write(ginfo->write_ctx);
  ginfo->write_ctx = nullptr;
  if (closed != 0) TARV_LOG(kAppend, "vexo_tarv_mtd_close_write failed\n");
  return closed;
}

// Opens store partition `i`, erases it and goes to its first good block. Returns 0 or -1.
int enter_partition(int i) {
  ginfo->write_ctx = vexo_tarv_mtd_open_write(list_name(i));
  if (ginfo->write_ctx == nullptr) {
    TARV_LOG(kAppend, "can't write mtd partition %s\n", list_name(i));
    return -1;
  }
  if (mtd_erase_blocks(*ginfo->write_ctx, -1) == -1) {
    TARV_LOG(kAppend, "%s[%d] error erasing blocks\n", kAppend, __LINE__);
    return -1;
  }
  if (mtd_seek_write_pos(*ginfo->write_ctx, 0) != 0) {
    TARV_LOG(kAppend, "%s[%d] mtd_seek_write_pos error\n", kAppend, __LINE__);
    return -1;
  }
  return 0;
}

// Appends a piece that reaches the end of store partition `i`.
int append_across(int i, const uint8_t* data, uint32_t length) {
  const uint32_t room = capacity_of(i) - store_saved(i);
  if (fill_partition(i, data, room) != 0) return -1;
  const uint32_t rest = length - room;
  if (is_last(i)) {
    if (rest != 0) {
      // Spelled so on purpose: see "Texts and names that are interfaces" in docs/architecture.md.
      TARV_LOG(kAppend, "no valid partiton space, error\n");
      return -1;
    }
    TARV_LOG(kAppend, "no partiton, no data return\n");
    return 0;
  }
  // Even when nothing is left over: the next append needs an open partition.
  if (enter_partition(i + 1) != 0) return -1;
  // The next partition may hold less than the rest, or nothing.
  return rest == 0 ? 0 : vexo_tarv_mtd_append(data + room, static_cast<int32_t>(rest));
}

// Leaves the store partition that has been read to its end for the next one, if there is one.
void read_on(int i, uint32_t* offset) {
  vexo_tarv_mtd_close_read(ginfo->read_ctx);
  ginfo->read_ctx = is_last(i) ? nullptr : vexo_tarv_mtd_open_read(list_name(i + 1));
  *offset = 0;
}

// Reads from the current context and counts. Returns 0 or -1.
int read_counted(uint8_t* data, uint32_t length, uint32_t* offset) {
  if (mtd_read_data(*ginfo->read_ctx, data, length) != length) return -1;
  *offset += length;
  return 0;
}

}  // namespace

uint32_t& store_saved(int i) {
  const auto slot = static_cast<uint32_t>(i);
  return slot < kStoreCountSlots ? ghead->ptsavesize[slot] : ginfo->vexonv_saved;
}

mtd_write_ctx* vexo_tarv_mtd_open_write(const char* name) {
  return open_partition(__func__, name, open_for_writing);
}

mtd_read_ctx* vexo_tarv_mtd_open_read(const char* name) {
  return open_partition(__func__, name, open_for_reading);
}

int vexo_tarv_mtd_close_write(mtd_write_ctx* ctx) {
  if (ctx == nullptr) {
    TARV_LOG(__func__, "%s NULL\n", __func__);
    return 0;
  }
  if (mtd_erase_blocks(*ctx, -1) == -1) {
    TARV_LOG(__func__, "error erasing blocks of xxx\n");
    (void)!mtd_write_close(ctx);
    return -1;
  }
  if (mtd_write_close(ctx) != 0) {
    TARV_LOG(__func__, "error closing write of xxx\n");
    return -1;
  }
  return 0;
}

void vexo_tarv_mtd_close_read(mtd_read_ctx* ctx) {
  if (ctx == nullptr) {
    TARV_LOG(__func__, "%s NULL\n", __func__);
    return;
  }
  TARV_LOG(__func__, "%s %s\n", __func__, ctx->partition->name);
  mtd_read_close(ctx);
}

int vexo_tarv_mtd_append(const void* data, int32_t length) {
  if (data == nullptr) {
    TARV_LOG(__func__, "%s buf is null.\n", __func__);
    return -1;
  }
  if (length < 1) {
    TARV_LOG(__func__, "%s empty data.\n", __func__);
    return 0;
  }
  if (ginfo->write_ctx == nullptr) return -1;
  const char* const name = ginfo->write_ctx->partition->name;
  const int i = vexo_tarv_get_cur_partition(name);
  if (i < 0) {
    TARV_LOG(__func__, "vexo_tarv_get_cur_partition error.\n");
    return -1;
  }
  const auto bytes = static_cast<uint32_t>(length);
  // At the capacity, not behind it: what lies beyond is the reserve for blocks that fail.
  if (store_saved(i) + bytes >= capacity_of(i)) {
    return append_across(i, static_cast<const uint8_t*>(data), bytes);
  }
  if (mtd_write_data(*ginfo->write_ctx, data, bytes) != bytes) {
    TARV_LOG(__func__, "write partition %s data error\n", name);
    return -1;
  }
  store_saved(i) += bytes;
  return 0;
}

int vexo_tarv_mtd_read(void* data, uint32_t length, uint32_t* offset) {
  const int i =
      ginfo->read_ctx == nullptr ? -1 : vexo_tarv_get_cur_partition(ginfo->read_ctx->partition->name);
  if (i < 0) {
    TARV_LOG(__func__, "vexo_tarv_get_cur_partition error.\n");
    return -1;
  }
  auto* const out = static_cast<uint8_t*>(data);
  // The writer's own counts say where a partition ends; its size says nothing, because of the reserve.
  if (*offset + length < store_saved(i)) return read_counted(out, length, offset);
  const uint32_t first = store_saved(i) - *offset;
  if (read_counted(out, first, offset) != 0) return -1;
  read_on(i, offset);
  const uint32_t rest = length - first;
  if (rest == 0) return 0;
  if (ginfo->read_ctx == nullptr) return -1;
  // The next partition may have had little room, or none: what it lacks is in the one behind it.
  if (rest > store_saved(i + 1)) return vexo_tarv_mtd_read(out + first, rest, offset);
  return read_counted(out + first, rest, offset);
}
