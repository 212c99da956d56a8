#include "tools/tarv-pkg/partition_names.h"

#include "store/partition_groups.h"

namespace {

// Names to offer. The updater's own table decides which group a name is in, and whether it is in one at all:
// a name that it has dropped is not offered any more.
constexpr const char* kOffered[] = {
    "system",    "modem",      "systemdata",  "sbl",         "tz",
    "tz_devcfg", "xbl_config", "xbl_ramdump", "multi_image", "multi_image_qti",
    "aop",       "qhee",       "abl",         "uefi",        "boot",
    "oeminfo",   "sec",        "ipa_fw",      "apdp",        "efs2bak",
    "recovery",  "recoveryfs"};

}  // namespace

std::string names_in_group(int group) {
  std::string names;
  for (const char* name : kOffered) {
    if (vexo_tarv_get_pt_type(name) != group) continue;
    if (!names.empty()) names += ' ';
    names += name;
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
