// The stream through the store: proven once, then read image by image.
#ifndef TARVOLIN_RESTORE_STREAM_H
#define TARVOLIN_RESTORE_STREAM_H

#include <cstdint>
#include <optional>

#include "restore/store.h"

namespace restore {

// Reads the whole stream by the rule of docs/store-format.md, compares every image's CRC, and marks the
// blocks that hold it. `memory` takes the largest erase block. Returns 0, or -1 with a fault.
[[nodiscard]] int prove_store(store& from, uint8_t* memory);

// The bytes of one image of a store that was proven. It reads the blocks in which the proof found them, and
// no others: one that has decayed since ends the reading, and does not shift what follows.
class image_reader {
 public:
  // `memory` takes the largest erase block and belongs to the reader as long as it lives.
  image_reader(const store& from, uint32_t image, uint8_t* memory);

  // The bytes of the image that are next in one block of the store: how many, and where they are until the
  // next call. An image that has none left gives 0. Returns 0, or -1 with a fault.
  [[nodiscard]] int peek(const uint8_t*& data, uint32_t& length);

  // Copies the next `length` bytes, which the image must have. Returns 0, or -1 with a fault.
  [[nodiscard]] int take(uint8_t* out, uint32_t length);

 private:
  [[nodiscard]] int next_block();
  [[nodiscard]] int read_marked(uint32_t block);

  const store& from_;
  uint8_t* memory_;
  uint32_t left_;  // bytes of the image to come
  size_t part_ = 0;
  uint32_t block_ = 0;      // the next one to look at
  uint64_t part_left_ = 0;  // bytes of the stream in this partition behind the block in hand
  uint64_t skip_ = 0;       // bytes of the stream before the image that are still to be passed over
  uint32_t at_ = 0;         // in the block in hand
  uint32_t filled_ = 0;     // bytes of the stream in it
  std::optional<device> open_;
};

}  // namespace restore

#endif
