#include "tools/tarv-pkg/partition_names.h"

#include "store/partition_groups.h"

namespace tools::tarv_pkg {

std::string names_in_group(int group) {
  std::string names;
  for (const partition_group_entry& entry : partition_groups) {
    if (entry.type != group) continue;
    if (!names.empty()) names += ' ';
    names += entry.name;
  }
  return names;
}

const char* group_name(int group) {
  switch (group) {
    case kStoreGroup:
      return "store";
    case kFileGroup:
      return "file";
    case kRecoveryGroup:
      return "recovery";
    default:
      return "none";
  }
}

}  // namespace tools::tarv_pkg
