#include "store/partition_access.h"

#include "main/run/log.h"

namespace {

// Loads the partition table and looks `name` up. Returns its entry, or null.
const mtd_partition* find_partition(const char* op, const char* name) {
  // Anew for each lookup: pointers from earlier loads stay valid, since entries are refilled in place.
  if (mtd_load_partitions() < 1) {
    TARV_LOG(op, "scan part failed.\n");
    return nullptr;
  }
  const mtd_partition* const partition = mtd_find_partition(name);
  if (partition == nullptr) TARV_LOG(op, "no mtd partition named \"%s\"\n", name);
  return partition;
}

}  // namespace

mtd_write_ctx* open_for_writing(const char* op, const char* name) {
  const mtd_partition* const partition = find_partition(op, name);
  if (partition == nullptr) return nullptr;
  mtd_write_ctx* const ctx = mtd_write_open(*partition);
  if (ctx == nullptr) TARV_LOG(op, "can't write mtd partition \"%s\"\n", name);
  return ctx;
}

mtd_read_ctx* open_for_reading(const char* op, const char* name) {
  const mtd_partition* const partition = find_partition(op, name);
  if (partition == nullptr) return nullptr;
  mtd_read_ctx* const ctx = mtd_read_open(*partition);
  if (ctx == nullptr) TARV_LOG(op, "can't read mtd partition \"%s\"\n", name);
  return ctx;
}
