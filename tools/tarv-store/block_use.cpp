#include "tools/tarv-store/block_use.h"

#include <algorithm>

#include "tools/common/refusal.h"
#include "tools/tarv-store/block_reader.h"

namespace tools::tarv_store {

namespace {

// What the block says by itself.
std::vector<block_use> survey_partition(const store_partition& partition) {
  std::vector<block_use> blocks(partition.bad.size());
  for (size_t i = 0; i < blocks.size(); ++i) {
    if (partition.bad[i]) blocks[i].kind = block_kind::bad;
  }
  block_reader reader(*partition.entry, partition.bad, 0);
  while (reader.next()) {
    const auto& data = reader.data();
    const bool erased = std::all_of(data.begin(), data.end(), [](uint8_t byte) { return byte == 0xFF; });
    blocks[reader.number()].kind = erased ? block_kind::erased : block_kind::other;
  }
  return blocks;
}

block_use use_of(const store_head_record& record, const stream_block& block) {
  block_use use = {block_kind::padding, 0, 0};
  cut_images(record, block, [&](uint32_t image, const uint8_t*, size_t) {
    if (use.kind == block_kind::padding) use = {block_kind::image, image, image};
    use.last_image = image;
  });
  return use;
}

bool is_same(const block_use& a, const block_use& b) {
  return a.kind == b.kind && a.first_image == b.first_image && a.last_image == b.last_image;
}

}  // namespace

std::vector<std::vector<block_use>> survey(store_view& store) {
  std::vector<std::vector<block_use>> uses;
  for (const store_partition& partition : store.partitions) uses.push_back(survey_partition(partition));
  if (store.form != record_form::none) uses[0][store.head_block].kind = block_kind::head;
  try {
    walk_stream(store, [&](const stream_block& block) {
      uses[block.partition][block.number] = use_of(store.record, block);
      return true;
    });
  } catch (const refusal& fault) {
    store.fault = fault.what();
  }
  return uses;
}

std::vector<block_range> ranges_of(const std::vector<block_use>& blocks) {
  std::vector<block_range> ranges;
  for (uint32_t i = 0; i < blocks.size(); ++i) {
    if (ranges.empty() || !is_same(ranges.back().use, blocks[i])) ranges.push_back({i, i, blocks[i]});
    ranges.back().last = i;
  }
  return ranges;
}

const char* kind_name(block_kind kind) {
  switch (kind) {
    case block_kind::bad:
      return "bad";
    case block_kind::head:
      return "head";
    case block_kind::image:
      return "image";
    case block_kind::padding:
      return "padding";
    case block_kind::erased:
      return "erased";
    case block_kind::other:
      return "other";
    default:
      return "unreadable";
  }
}

std::string use_text(const store_view& store, const block_use& use) {
  std::string text = kind_name(use.kind);
  if (use.kind != block_kind::image) return text;
  for (uint32_t i = use.first_image; i <= use.last_image; ++i) {
    text +=
        (i == use.first_image ? " " : ", ") + std::to_string(i) + " " + image_name(store.record.images[i]);
  }
  return text;
}

}  // namespace tools::tarv_store
