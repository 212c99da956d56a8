#include "package/head_rules.h"

#include "main/run/run_directory.h"
#include "package/crc32.h"
#include "store/head_record.h"

namespace {

// True when an earlier file-group image of the package uses the file name of entry `i`.
bool is_taken(const package_head& head, uint32_t i) {
  for (uint32_t k = 0; k < i; ++k) {
    if (group_of(head.images[k]) != kFileGroup) continue;
    if (field_text(head.images[k].file_name) == field_text(head.images[i].file_name)) return true;
  }
  return false;
}

entry_fault examine_file_name(const package_head& head, uint32_t i) {
  const std::string_view name = field_text(head.images[i].file_name);
  if (name.empty()) return entry_fault::file_name_empty;
  if (name.size() == sizeof head.images[i].file_name) return entry_fault::file_name_unterminated;
  if (name[0] == '.') return entry_fault::file_name_hidden;
  if (name.find('/') != std::string_view::npos) return entry_fault::file_name_with_folder;
  if (tarv_is_run_file(name)) return entry_fault::file_name_of_run;
  return is_taken(head, i) ? entry_fault::file_name_taken : entry_fault::none;
}

}  // namespace

uint32_t package_length(const package_head& head) {
  // Wraps at 2^32, as the announced length does; the check stage finds packages made to use that.
  uint32_t length = kPackageHeadSize;
  for (uint32_t i = 0; i < head.image_num; ++i) length += head.images[i].size;
  return length;
}

uint32_t package_head_crc(const package_head& head) {
  return crc32_update(kCrcStart, &head, offsetof(package_head, header_crc32));
}

entry_fault examine_entry(const package_head& head, uint32_t i) {
  const int group = group_of(head.images[i]);
  if (group == kNoGroup) return entry_fault::unsupported_partition;
  const int first_group = group_of(head.images[0]);
  if (group == kRecoveryGroup && first_group != kRecoveryGroup) return entry_fault::misplaced_recovery;
  return group == kFileGroup ? examine_file_name(head, i) : entry_fault::none;
}

table_fault examine_table(const package_head& head) {
  if (count_store_images(head) > kStoreImagesMax) return table_fault::too_many_store_images;
  if (has_unknown_first_entry(head)) return table_fault::unknown_first_entry;
  return find_foreign_image(head) ? table_fault::foreign_image : table_fault::none;
}

uint32_t count_store_images(const package_head& head) {
  uint32_t count = 0;
  for (uint32_t i = 0; i < head.image_num; ++i) {
    if (group_of(head.images[i]) == kStoreGroup) ++count;
  }
  return count;
}

bool has_unknown_first_entry(const package_head& head) {
  return group_of(head.images[0]) == kNoGroup;
}

std::optional<uint32_t> find_foreign_image(const package_head& head) {
  if (group_of(head.images[0]) != kRecoveryGroup) return std::nullopt;
  for (uint32_t i = 0; i < head.image_num; ++i) {
    if (group_of(head.images[i]) != kRecoveryGroup) return i;
  }
  return std::nullopt;
}
