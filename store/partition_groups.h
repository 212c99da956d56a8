// Which partition takes part in an update, and how: the table of name groups and the list of store
// partitions.
#ifndef TARVOLIN_STORE_PARTITION_GROUPS_H
#define TARVOLIN_STORE_PARTITION_GROUPS_H

#include <array>
#include <string_view>

#include "main/run/record.h"

// How an image travels; the values of vexo_tarv_get_pt_type.
constexpr int kStoreGroup = 1;     // appended to the store
constexpr int kFileGroup = 2;      // saved as a file, installed from there
constexpr int kRecoveryGroup = 3;  // written straight into its partition
constexpr int kNoGroup = -1;       // not supported

// The partitions of the store, in the order in which the stream fills them. The first also holds the head
// record.
constexpr std::array<const char*, kStorePartitions> store_list = {"userdata", "recoveryfs", "recovery",
                                                                  "vexonv"};

// The group of a partition name (exact match), or kNoGroup.
[[nodiscard]] int vexo_tarv_get_pt_type(std::string_view name);

// Position of `name` in the store list, or -1 when it is null or not in the list.
[[nodiscard]] int vexo_tarv_get_cur_partition(const char* name);

#endif
