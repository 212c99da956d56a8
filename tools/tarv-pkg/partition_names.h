// Partition names to tell a user who gave one that no group knows.
#ifndef TARVOLIN_TOOLS_TARV_PKG_PARTITION_NAMES_H
#define TARVOLIN_TOOLS_TARV_PKG_PARTITION_NAMES_H

#include <string>

namespace tools::tarv_pkg {

// The names of a partition group (kStoreGroup, kFileGroup or kRecoveryGroup), separated by one space.
[[nodiscard]] std::string names_in_group(int group);

// What a package maker calls the group: "store", "file", "recovery", or "none".
[[nodiscard]] const char* group_name(int group);

}  // namespace tools::tarv_pkg

#endif
