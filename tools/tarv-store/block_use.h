// What the blocks of the store partitions hold.
#ifndef TARVOLIN_TOOLS_TARV_STORE_BLOCK_USE_H
#define TARVOLIN_TOOLS_TARV_STORE_BLOCK_USE_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/tarv-store/store_view.h"

namespace tools::tarv_store {

enum class block_kind { passed_over, bad, head, image, padding, erased, other };

struct block_use {
  block_kind kind = block_kind::passed_over;  // not marked bad, but does not read cleanly
  uint32_t first_image = 0;                   // of block_kind::image: the images with bytes in the block
  uint32_t last_image = 0;
};

// Blocks next to each other that hold the same.
struct block_range {
  uint32_t first;
  uint32_t last;
  block_use use;
};

// For each partition of the store a table of its blocks. A stream that breaks off becomes the store's fault.
[[nodiscard]] std::vector<std::vector<block_use>> survey(store_view& store);

[[nodiscard]] std::vector<block_range> ranges_of(const std::vector<block_use>& blocks);

// "bad", "erased" and so on, for people and for programs.
[[nodiscard]] const char* kind_name(block_kind kind);
// The same with the names of images.
[[nodiscard]] std::string use_text(const store_view& store, const block_use& use);

}  // namespace tools::tarv_store

#endif
