#include "restore/target.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "package/crc32.h"
#include "restore/fault.h"
#include "restore/progress.h"

namespace restore {

namespace {

// What was found of an image while its target is read.
struct reading {
  const store_head_image& image;
  const char* name;  // of the target
  uint32_t left;     // bytes of the image to come
  uint32_t crc = kCrcStart;
  char* why;
};

// Judges one block that counts. False when the target differs.
bool agrees(reading& so_far, uint32_t block, const uint8_t* data, uint32_t erase_size) {
  const uint32_t n = std::min(so_far.left, erase_size);
  so_far.crc = crc32_update(so_far.crc, data, n);
  so_far.left -= n;
  if (so_far.left == 0 && so_far.crc != so_far.image.crc) {
    snprintf(so_far.why, kFaultCapacity, "\"%s\": crc is 0x%08" PRIx32 ", flash gives 0x%08" PRIx32,
             so_far.name, so_far.image.crc, so_far.crc);
    return false;
  }
  if (is_erased(data + n, erase_size - n)) return true;
  snprintf(so_far.why, kFaultCapacity,
           "\"%s\": block %u is not erased behind the image: if it takes no erase, have it marked bad",
           so_far.name, block);
  return false;
}

verdict read_target(const device& target, reading& so_far, uint8_t* memory) {
  bool gapped = false;
  for (uint32_t block = 0; block < target.blocks(); ++block) {
    bool counts = false;
    if (read_block(target, block, memory, counts) != 0) return verdict::unknown;
    if (counts && !agrees(so_far, block, memory, target.erase_size())) return verdict::differs;
    if (!counts && !gapped) {
      const int bad = is_marked_bad(target, block);
      if (bad < 0) return verdict::unknown;
      gapped = bad == 0;
    }
    add_progress(target.erase_size());
  }
  if (so_far.left == 0 && so_far.crc == so_far.image.crc) return gapped ? verdict::gapped : verdict::holds;
  snprintf(so_far.why, kFaultCapacity, "\"%s\" ends %" PRIu32 " bytes before its image", so_far.name,
           so_far.left);
  return verdict::differs;
}

}  // namespace

int find_target(const store_head_image& image, const mtd_partition*& target) {
  target = mtd_find_partition(image.name);
  if (target == nullptr) return fault("there is no partition \"%s\" for its image", image.name);
  if (!has_sound_geometry(*target)) return -1;
  const device open(*target, mtd_access::read_only);
  uint32_t good = 0;
  if (!open.ok() || count_good_blocks(open, 0, good) != 0) return -1;
  const uint64_t room = uint64_t{good} * target->erase_size;
  if (image.size <= room) return 0;
  return fault("\"%s\" has room for %" PRIu64 " bytes in good blocks, its image has %" PRIu32, image.name,
               room, image.size);
}

int compare_start(const mtd_partition& target, const store& from, uint32_t image, workspace& memory,
                  bool& alike) {
  image_reader source(from, image, memory.store_block.get());
  const uint8_t* wanted = nullptr;
  uint32_t length = 0;
  if (source.peek(wanted, length) != 0) return -1;
  const device open(target, mtd_access::read_only);
  if (!open.ok()) return -1;
  bool counts = false;
  for (uint32_t block = 0; block < open.blocks() && !counts; ++block) {
    if (read_block(open, block, memory.target_block.get(), counts) != 0) return -1;
  }
  alike = counts && memcmp(memory.target_block.get(), wanted, std::min(length, open.erase_size())) == 0;
  return 0;
}

verdict judge_target(const mtd_partition& target, const store_head_image& image, workspace& memory,
                     char (&why)[kFaultCapacity]) {
  const device open(target, mtd_access::read_only);
  if (!open.ok()) return verdict::unknown;
  reading so_far = {image, target.name, image.size, kCrcStart, why};
  return read_target(open, so_far, memory.target_block.get());
}

}  // namespace restore
