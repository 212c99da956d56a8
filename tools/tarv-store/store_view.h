// A store as it lies on flash: its head record, and the stream through its partitions.
#ifndef TARVOLIN_TOOLS_TARV_STORE_STORE_VIEW_H
#define TARVOLIN_TOOLS_TARV_STORE_STORE_VIEW_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "mtd/partitions.h"
#include "store/head_record.h"

namespace tools::tarv_store {

enum class record_form { none, storing, armed };

struct store_partition {
  const mtd_partition* entry = nullptr;  // in the partition table
  std::vector<bool> bad;                 // one for each block
  uint32_t first_block = 0;              // where its part of the stream begins; in "userdata" behind the head
  uint64_t bytes = 0;                    // of the stream; 0 unless the store is armed and free of faults
};

struct store_view {
  std::vector<store_partition> partitions;  // in the order of the stream, up to the first that is missing
  uint32_t head_block = 0;                  // of "userdata"; past its end when every block is bad
  record_form form = record_form::none;
  std::string remark;             // what stands in the record's place instead, for record_form::none
  store_head_record record = {};  // unless the form is none
  std::string fault;              // the first one of an armed record; empty when there is none
};

// One block's share of the stream.
struct stream_block {
  size_t partition;  // position in the store
  uint32_t number;   // block of that partition
  uint64_t offset;   // in the stream
  const uint8_t* data;
  uint32_t length;  // bytes of the stream in it, at most an erase block
};

// Throws a refusal that tells why there is nothing to restore: the record is not armed, or has a fault.
void require_armed(const store_view& store);

// Hands the blocks of the stream to `take`, until that returns false or the stream ends. Throws a refusal
// when a partition ends before its count.
void walk_stream(const store_view& store, const std::function<bool(const stream_block&)>& take);

// Cuts the image data, without the zero bytes between them, out of a block of the stream.
void cut_images(const store_head_record& record, const stream_block& block,
                const std::function<void(uint32_t image, const uint8_t* data, size_t length)>& take);

// The name of an image, bounded by its field.
[[nodiscard]] std::string image_name(const store_head_image& image);

// List entries that can be looked at: `image_num` of a damaged record may be past the list's end.
[[nodiscard]] uint32_t entries_in_list(const store_head_record& record);

}  // namespace tools::tarv_store

#endif
