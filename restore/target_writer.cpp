// Writing a target, block by block.
#include <algorithm>
#include <cstring>

#include "restore/fault.h"
#include "restore/progress.h"
#include "restore/target.h"

namespace restore {

namespace {

constexpr int kAttempts = 2;        // for each block
constexpr uint32_t kPiece = 65536;  // bytes read back and compared at a time
uint8_t piece[kPiece];

// The length to program: pages at the end that are all 0xFF stay erased. A page that was programmed, be it
// with 0xFF, takes no second program, and an image of UBI volumes is written on by UBI in its empty pages.
uint32_t length_to_program(const device& on, const uint8_t* data) {
  const uint32_t page = on.partition().write_size;
  uint32_t length = on.erase_size();
  while (length > 0 && is_erased(data + length - page, page)) length -= page;
  return length;
}

enum class put { done, refused, failed };

// Reads the block as its readers will, in pieces since there is no memory for a third block, and compares it
// with `data`, if that is not null. `refused` when it does not read cleanly or holds something else.
put read_back(const device& on, uint32_t block, const uint8_t* data) {
  for (uint32_t at = 0; at < on.erase_size(); at += kPiece) {
    const uint32_t n = std::min(kPiece, on.erase_size() - at);
    const int64_t place = static_cast<int64_t>(block) * on.erase_size() + at;
    bool clean = false;
    if (read_bytes(on, place, piece, n, clean) != 0) return put::failed;
    if (!clean || (data != nullptr && memcmp(piece, data + at, n) != 0)) return put::refused;
  }
  return put::done;
}

put try_block(const device& on, uint32_t block, const uint8_t* data) {
  if (!erase_block(on, block)) return put::refused;
  const uint32_t length = length_to_program(on, data);
  // A failed program is judged by what the flash holds.
  if (length > 0) program_block(on, block, data, length);
  return read_back(on, block, data);
}

// Gives a block up, erased. Readers must pass over it as this writer does: one that reads cleanly would be
// taken for data and shift all that follows.
put give_up(const device& on, uint32_t block) {
  const char* const name = on.partition().name;
  (void)!erase_block(on, block);
  const int bad = is_marked_bad(on, block);
  const put clean = bad != 0 ? put::refused : read_back(on, block, nullptr);
  if (bad < 0 || clean == put::failed) return put::failed;
  if (clean == put::done) {
    fault("block %u of \"%s\" takes no data but reads without an error: have it marked bad, then start again",
          block, name);
    return put::failed;
  }
  if (bad == 0) warn("block %u of \"%s\" takes no data and is passed over: have it marked bad", block, name);
  return put::refused;
}

put put_block(const device& on, uint32_t block, const uint8_t* data) {
  const int bad = is_marked_bad(on, block);
  if (bad != 0) return bad < 0 ? put::failed : put::refused;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const put result = try_block(on, block, data);
    if (result != put::refused) return result;
  }
  return give_up(on, block);
}

// Puts the data into the next block that takes them. Returns 0, or -1 with a fault.
int put_next(const device& on, uint32_t& block, const uint8_t* data) {
  while (block < on.blocks()) {
    const put result = put_block(on, block++, data);
    if (result != put::refused) return result == put::done ? 0 : -1;
  }
  return fault("\"%s\" is full: too many of its blocks take no data", on.partition().name);
}

// Erases what lies behind the image. A block that keeps old data shows when the target is read.
int erase_rest(const device& on, uint32_t block) {
  for (; block < on.blocks(); ++block) {
    const int bad = is_marked_bad(on, block);
    if (bad < 0) return -1;
    if (bad == 1 || erase_block(on, block) || erase_block(on, block)) continue;
    warn("block %u of \"%s\" takes no erase: have it marked bad", block, on.partition().name);
  }
  return 0;
}

// Writes the image. `block` is then the first one behind it. Its CRC is left to whoever reads the target
// back.
int copy_image(const device& on, uint32_t size, image_reader& source, uint8_t* data, uint32_t& block) {
  for (uint32_t left = size; left > 0;) {
    const uint32_t n = std::min(left, on.erase_size());
    if (source.take(data, n) != 0) return -1;
    memset(data + n, 0xFF, on.erase_size() - n);
    if (put_next(on, block, data) != 0) return -1;
    add_progress(n);
    left -= n;
  }
  return 0;
}

}  // namespace

int write_target(const mtd_partition& target, const store& from, uint32_t image, workspace& memory) {
  const uint32_t size = from.record.images[image].size;
  begin_step("write", target.name, size);
  const device on(target, mtd_access::read_write);
  if (!on.ok()) return -1;
  image_reader source(from, image, memory.store_block.get());
  uint32_t block = 0;
  if (copy_image(on, size, source, memory.target_block.get(), block) != 0) return -1;
  if (erase_rest(on, block) != 0) return -1;
  end_step(nullptr);
  return 0;
}

}  // namespace restore
