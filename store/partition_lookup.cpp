#include "store/partition_lookup.h"

#include "main/run/log.h"

const mtd_partition* find_logged_partition(const char* op, const char* name) {
  if (mtd_load_partitions() < 1) {
    TARV_LOG(op, "scan part failed.\n");
    return nullptr;
  }
  const mtd_partition* const partition = mtd_find_partition(name);
  if (partition == nullptr) TARV_LOG(op, "no mtd partition named \"%s\"\n", name);
  return partition;
}
