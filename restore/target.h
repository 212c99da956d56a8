// The partitions that images are restored into: found, judged, written.
//
// An image lies in a target's good blocks from the first on; what lies behind its last byte is erased.
#ifndef TARVOLIN_RESTORE_TARGET_H
#define TARVOLIN_RESTORE_TARGET_H

#include <cstdint>

#include "restore/fault.h"
#include "restore/stream.h"

namespace restore {

// The memory for all work on flash.
struct workspace {
  buffer store_block;   // the largest erase block of the store
  buffer target_block;  // the largest erase block of all
};

// Finds the target of `image` and sees that its good blocks have room. Returns 0, or -1 with a fault.
[[nodiscard]] int find_target(const store_head_image& image, const mtd_partition*& target);

// Tells whether the target begins as image number `image` of the store does: if not, there is no need to read
// it whole. Returns 0, or -1 with a fault.
[[nodiscard]] int compare_start(const mtd_partition& target, const store& from, uint32_t image,
                                workspace& memory, bool& alike);

// `gapped`: the target holds its image for readers, who pass over a block of it that is not marked bad.
enum class verdict { holds, gapped, differs, unknown };

// Reads the whole target and tells whether it holds the image and nothing else. `why` says what differs.
// `unknown`, with a fault, when the device does not answer.
[[nodiscard]] verdict judge_target(const mtd_partition& target, const store_head_image& image,
                                   workspace& memory, char (&why)[kFaultCapacity]);

// Erases the target and writes image number `image` of the store into it, every block read back. A block that
// takes no data is left for the next one, as long as readers will pass over it, too. Returns 0, or -1 with a
// fault.
[[nodiscard]] int write_target(const mtd_partition& target, const store& from, uint32_t image,
                               workspace& memory);

}  // namespace restore

#endif
