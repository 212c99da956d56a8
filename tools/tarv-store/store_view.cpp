#include "tools/tarv-store/store_view.h"

#include <algorithm>
#include <cstring>

#include "store/partition_groups.h"
#include "tools/common/refusal.h"
#include "tools/tarv-store/block_reader.h"

namespace tools::tarv_store {

void require_armed(const store_view& store) {
  if (store.form == record_form::storing) {
    throw refusal("the store is not armed: its record has the storing form, never to be acted on");
  }
  if (store.form == record_form::none) {
    throw refusal("the store is not armed: there is no record in the first good block of " +
                  in_quotes(store_list[0]) + " (" + store.remark + ")");
  }
  if (!store.fault.empty()) throw refusal(store.fault);
}

void walk_stream(const store_view& store, const std::function<bool(const stream_block&)>& take) {
  uint64_t offset = 0;
  for (size_t i = 0; i < store.partitions.size(); ++i) {
    const store_partition& partition = store.partitions[i];
    uint64_t left = partition.bytes;
    if (left == 0) continue;
    block_reader reader(*partition.entry, partition.bad, partition.first_block);
    while (left > 0) {
      if (!reader.next()) {
        throw refusal(in_quotes(partition.entry->name) + " ends " + std::to_string(left) +
                      " bytes before its " + std::to_string(partition.bytes) + " bytes of the stream");
      }
      const auto length = static_cast<uint32_t>(std::min<uint64_t>(left, partition.entry->erase_size));
      if (!take({i, reader.number(), offset, reader.data().data(), length})) return;
      offset += length;
      left -= length;
    }
  }
}

void cut_images(const store_head_record& record, const stream_block& block,
                const std::function<void(uint32_t image, const uint8_t* data, size_t length)>& take) {
  const uint64_t block_end = block.offset + block.length;
  uint64_t start = 0;  // of the image, in the stream
  for (uint32_t i = 0; i < record.image_num; start += record.images[i].size_algin, ++i) {
    const uint64_t from = std::max(start, block.offset);
    const uint64_t to = std::min(start + record.images[i].size, block_end);
    if (from < to) take(i, block.data + (from - block.offset), to - from);
  }
}

std::string image_name(const store_head_image& image) {
  return std::string(image.name, strnlen(image.name, sizeof image.name));
}

uint32_t entries_in_list(const store_head_record& record) {
  return std::min(record.image_num, kStoreImagesMax);
}

}  // namespace tools::tarv_store
