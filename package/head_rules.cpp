#include "package/head_rules.h"

#include "main/run/run_directory.h"
#include "package/crc32.h"
#include "store/partition_groups.h"

namespace {

bool is_file_image(const package_entry& entry) {
  return vexo_tarv_get_pt_type(field_text(entry.name)) == kFileGroup;
}

// True when an earlier file-group image of the package uses the file name of entry `i`.
bool is_taken(const package_head& head, uint32_t i) {
  for (uint32_t k = 0; k < i; ++k) {
    if (!is_file_image(head.images[k])) continue;
    if (field_text(head.images[k].file_name) == field_text(head.images[i].file_name)) return true;
  }
  return false;
}

// True when the file name of entry `i` names a plain file of its own in the run directory. A name that begins
// with "." would outlive the clean-up at the start of the next run.
bool has_plain_name(const package_head& head, uint32_t i) {
  const std::string_view name = field_text(head.images[i].file_name);
  if (name.empty() || name.size() == sizeof head.images[i].file_name) return false;
  if (name[0] == '.' || name.find('/') != std::string_view::npos) return false;
  return !tarv_is_run_file(name) && !is_taken(head, i);
}

}  // namespace

uint32_t package_length(const package_head& head) {
  uint32_t length = kPackageHeadSize;
  for (uint32_t i = 0; i < head.image_num; ++i) length += head.images[i].size;
  return length;
}

uint32_t package_head_crc(const package_head& head) {
  return crc32_update(kCrcStart, &head, offsetof(package_head, header_crc32));
}

entry_fault examine_entry(const package_head& head, uint32_t i) {
  const int group = vexo_tarv_get_pt_type(field_text(head.images[i].name));
  if (group == kNoGroup) return entry_fault::unsupported_partition;
  const int first_group = vexo_tarv_get_pt_type(field_text(head.images[0].name));
  if (group == kRecoveryGroup && first_group != kRecoveryGroup) return entry_fault::misplaced_recovery;
  if (group == kFileGroup && !has_plain_name(head, i)) return entry_fault::file_name;
  return entry_fault::none;
}
