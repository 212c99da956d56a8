#include "store/partition_groups.h"

#include <cstring>

namespace {

struct partition_group_entry {
  int type;
  std::string_view name;
};

constexpr partition_group_entry partition_groups[] = {
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

}  // namespace

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
