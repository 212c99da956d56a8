#include "store/partition_groups.h"

#include <cstring>

int vexo_tarv_get_pt_type(std::string_view name) {
  for (const partition_group_entry& entry : partition_groups) {
    if (entry.name == name) return entry.type;
  }
  return kNoGroup;
}

int vexo_tarv_get_cur_partition(const char* name) {
  if (name == nullptr) return -1;
  for (int i = 0; i < kStorePartitions; ++i) {
    if (strcmp(store_list[static_cast<size_t>(i)], name) == 0) return i;
  }
  return -1;
}
