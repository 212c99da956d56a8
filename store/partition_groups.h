// Which partition takes part in an update, and how: the table of name groups and the list of store
// partitions.
#ifndef TARVOLIN_STORE_PARTITION_GROUPS_H
#define TARVOLIN_STORE_PARTITION_GROUPS_H

#include <array>
#include <string_view>

#include "store/head_record.h"

// How an image travels; the values of vexo_tarv_get_pt_type.
constexpr int kStoreGroup = 1;     // appended to the store
constexpr int kFileGroup = 2;      // saved as a file, installed from there
constexpr int kRecoveryGroup = 3;  // written straight into its partition
constexpr int kNoGroup = -1;       // not supported

struct partition_group_entry {
  int type;
  std::string_view name;
};

// Every partition name that a package may carry, with its group.
inline constexpr partition_group_entry partition_groups[] = {
    {kStoreGroup, "system"},      {kStoreGroup, "modem"},
    {kStoreGroup, "systemdata"},  {kFileGroup, "sbl"},
    {kFileGroup, "tz"},           {kFileGroup, "tz_devcfg"},
    {kFileGroup, "xbl_config"},   {kFileGroup, "xbl_ramdump"},
    {kFileGroup, "multi_image"},  {kFileGroup, "multi_image_qti"},
    {kFileGroup, "aop"},          {kFileGroup, "qhee"},
    {kFileGroup, "abl"},          {kFileGroup, "uefi"},
    {kFileGroup, "boot"},         {kFileGroup, "oeminfo"},
    {kFileGroup, "sec"},          {kFileGroup, "ipa_fw"},
    {kFileGroup, "apdp"},         {kFileGroup, "efs2bak"},
    {kRecoveryGroup, "recovery"}, {kRecoveryGroup, "recoveryfs"},
};

// The partitions of the store, in the order in which the stream fills them. The first also holds the head
// record.
constexpr std::array<const char*, kStorePartitions> store_list = {"userdata", "recoveryfs", "recovery",
                                                                  "vexonv"};

// The group of a partition name (exact match), or kNoGroup.
[[nodiscard]] int vexo_tarv_get_pt_type(std::string_view name);

// Position of `name` in the store list, or -1 when it is null or not in the list.
[[nodiscard]] int vexo_tarv_get_cur_partition(const char* name);

#endif
