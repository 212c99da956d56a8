#include "restore/stream.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>

#include "package/crc32.h"
#include "restore/fault.h"
#include "restore/progress.h"

namespace restore {

namespace {

constexpr int kReads = 3;  // of a block that was good when the store was proven

bool is_marked(const store_part& part, uint32_t block) {
  return (part.holds.get()[block / 8] >> (block % 8) & 1) != 0;
}

void mark(store_part& part, uint32_t block) {
  part.holds.get()[block / 8] = static_cast<uint8_t>(part.holds.get()[block / 8] | 1u << (block % 8));
}

// The CRCs of all images, computed along the stream.
struct proof {
  const store_head_record& record;
  uint64_t offset = 0;  // in the stream
  std::array<uint32_t, kStoreImagesMax> crcs;
};

// Adds a piece of the stream to the CRCs of the images that have bytes in it.
void add_piece(proof& all, const uint8_t* data, uint64_t length) {
  const uint64_t end = all.offset + length;
  uint64_t start = 0;  // of the image, in the stream
  for (uint32_t i = 0; i < all.record.image_num; start += all.record.images[i].size_algin, ++i) {
    const uint64_t from = std::max(start, all.offset);
    const uint64_t to = std::min(start + all.record.images[i].size, end);
    if (from >= to) continue;
    all.crcs[i] = crc32_update(all.crcs[i], data + (from - all.offset), static_cast<size_t>(to - from));
  }
  all.offset = end;
}

int prove_part(store_part& part, uint8_t* memory, proof& all) {
  if (part.bytes == 0) return 0;
  const device open(*part.entry, mtd_access::read_only);
  if (!open.ok()) return -1;
  uint64_t left = part.bytes;
  for (uint32_t block = part.first_block; left > 0; ++block) {
    if (block >= open.blocks()) {
      return fault("\"%s\" ends %" PRIu64 " bytes before its %" PRIu64
                   " bytes of the stream: blocks of it cannot be read",
                   part.entry->name, left, part.bytes);
    }
    bool counts = false;
    if (read_block(open, block, memory, counts) != 0) return -1;
    if (!counts) continue;
    mark(part, block);
    const uint64_t length = std::min<uint64_t>(left, open.erase_size());
    add_piece(all, memory, length);
    add_progress(length);
    left -= length;
  }
  return 0;
}

int compare(const proof& all) {
  for (uint32_t i = 0; i < all.record.image_num; ++i) {
    const store_head_image& image = all.record.images[i];
    if (all.crcs[i] == image.crc) continue;
    return fault("the store is damaged: image %u, \"%s\": crc is 0x%08" PRIx32 ", the data give 0x%08" PRIx32,
                 i, image.name, image.crc, all.crcs[i]);
  }
  return 0;
}

}  // namespace

int prove_store(store& from, uint8_t* memory) {
  proof all = {from.record, 0, {}};
  all.crcs.fill(kCrcStart);
  begin_step("prove", "store", stream_length(from));
  for (store_part& part : from.parts) {
    if (prove_part(part, memory, all) != 0) return -1;
  }
  if (compare(all) != 0) return -1;
  end_step(nullptr);
  return 0;
}

image_reader::image_reader(const store& from, uint32_t image, uint8_t* memory)
    : from_(from), memory_(memory), left_(from.record.images[image].size) {
  for (uint32_t i = 0; i < image; ++i) skip_ += from.record.images[i].size_algin;
  block_ = from.parts[0].first_block;
  part_left_ = from.parts[0].bytes;
}

int image_reader::peek(const uint8_t*& data, uint32_t& length) {
  while (left_ > 0 && at_ == filled_) {
    if (next_block() != 0) return -1;
  }
  data = memory_ + at_;
  length = std::min(left_, filled_ - at_);
  return 0;
}

int image_reader::take(uint8_t* out, uint32_t length) {
  while (length > 0) {
    const uint8_t* data = nullptr;
    uint32_t n = 0;
    if (peek(data, n) != 0) return -1;
    if (n == 0) return fault("the image ends before its size");
    n = std::min(n, length);
    memcpy(out, data, n);
    at_ += n;
    left_ -= n;
    out += n;
    length -= n;
  }
  return 0;
}

// Goes to the next block of the stream. One that lies before the image is not read.
int image_reader::next_block() {
  while (part_left_ == 0) {
    open_.reset();
    if (++part_ >= from_.part_count) return fault("the stream ends before the image");
    block_ = from_.parts[part_].first_block;
    part_left_ = from_.parts[part_].bytes;
  }
  const store_part& part = from_.parts[part_];
  while (!is_marked(part, block_)) ++block_;
  const auto length = static_cast<uint32_t>(std::min<uint64_t>(part_left_, part.entry->erase_size));
  part_left_ -= length;
  filled_ = length;
  at_ = static_cast<uint32_t>(std::min<uint64_t>(skip_, length));
  skip_ -= at_;
  const uint32_t block = block_++;
  return at_ == length ? 0 : read_marked(block);
}

int image_reader::read_marked(uint32_t block) {
  const store_part& part = from_.parts[part_];
  if (!open_) open_.emplace(*part.entry, mtd_access::read_only);
  if (!open_->ok()) return -1;
  const int64_t place = static_cast<int64_t>(block) * part.entry->erase_size;
  for (int i = 0; i < kReads; ++i) {
    bool clean = false;
    if (read_bytes(*open_, place, memory_, part.entry->erase_size, clean) != 0) return -1;
    if (clean) return 0;
  }
  return fault("the store is damaged: block %u of \"%s\" can no longer be read", block, part.entry->name);
}

}  // namespace restore
