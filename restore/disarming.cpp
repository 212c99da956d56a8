#include "restore/disarming.h"

#include "restore/fault.h"
#include "restore/progress.h"

namespace restore {

namespace {

constexpr int kAttempts = 2;

}  // namespace

// An erase is judged by what the flash holds, and only a record that reads as erased is gone for certain: one
// that cannot be read just now may be read at the next start.
int disarm(const store& restored) {
  const mtd_partition& first = *restored.parts[0].entry;
  const device on(first, mtd_access::read_write);
  if (!on.ok()) return -1;
  const int64_t place = static_cast<int64_t>(restored.head_block) * first.erase_size;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    (void)!erase_block(on, restored.head_block);
    store_head_record found = {};
    bool clean = false;
    if (read_bytes(on, place, &found, sizeof found, clean) != 0) return -1;
    if (clean && is_erased(reinterpret_cast<const uint8_t*>(&found), sizeof found)) return 0;
  }
  return fault(
      "all targets are restored, but block %u of \"%s\" takes no erase and may still hold the armed record",
      restored.head_block, first.name);
}

}  // namespace restore
