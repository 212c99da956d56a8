#include "tools/tarv-store/dump_hints.h"

#include <algorithm>

#include "mtd/device.h"
#include "tools/tarv-store/block_reader.h"
#include "tools/tarv-store/source.h"

namespace tools::tarv_store {

namespace {

constexpr uint32_t kSmallestBlock = 512;
constexpr uint32_t kSearched = 16 * 1024 * 1024;  // bytes from the start on: many bad blocks, or a large one
constexpr uint32_t kErasedTail = 2048;  // bytes: the end of a stream may leave a part of a block erased

std::string question(const mtd_partition& partition) {
  return std::string(": are all its bad blocks in ") + partition.name + ".bad, and is the erase block " +
         std::to_string(partition.erase_size) + " bytes?";
}

bool has_record(int fd, uint32_t at) {
  uint32_t magic = 0;
  const bool read = mtd_device_seek(fd, at, SEEK_SET) == static_cast<off_t>(at) &&
                    mtd_device_read(fd, &magic, sizeof magic) == static_cast<ssize_t>(sizeof magic);
  return read && (magic == TARV_RESTORE_MAGIC || magic == TARV_STORING_MAGIC);
}

bool ends_erased(const stream_block& block) {
  const uint8_t* const end = block.data + block.length;
  return std::all_of(end - std::min(block.length, kErasedTail), end,
                     [](uint8_t byte) { return byte == 0xFF; });
}

}  // namespace

std::string hint_on_record(const store_view& store) {
  if (!reads_dumps()) return "";
  const mtd_partition& first = *store.partitions[0].entry;
  const read_handle ctx = open_partition(first);
  for (uint32_t at = 0; at < std::min(first.size, kSearched); at += kSmallestBlock) {
    if (has_record(ctx->fd, at)) return "; a record stands at byte " + std::to_string(at) + question(first);
  }
  return "";
}

std::string hint_on_data(const store_view& store) {
  if (!reads_dumps()) return "";
  std::string hint;
  walk_stream(store, [&](const stream_block& block) {
    if (!ends_erased(block)) return true;
    const mtd_partition& partition = *store.partitions[block.partition].entry;
    hint = std::string("; block ") + std::to_string(block.number) + " of \"" + partition.name +
           "\" is erased in the middle of the data" + question(partition);
    return false;
  });
  return hint;
}

}  // namespace tools::tarv_store
