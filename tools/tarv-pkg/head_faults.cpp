#include "tools/tarv-pkg/head_faults.h"

#include "package/head_rules.h"
#include "store/head_record.h"
#include "store/partition_groups.h"
#include "tools/tarv-pkg/partition_names.h"

namespace tools::tarv_pkg {

namespace {

// What is wrong with the saved name of an image, or null when the fault is another one.
const char* saved_name_fault(entry_fault fault) {
  switch (fault) {
    case entry_fault::file_name_empty:
      return "is empty";
    case entry_fault::file_name_unterminated:
      return "has no NUL inside its field";
    case entry_fault::file_name_hidden:
      return "begins with \".\"";
    case entry_fault::file_name_with_folder:
      return "holds a \"/\"";
    case entry_fault::file_name_of_run:
      return "is that of a file which the updater itself writes";
    case entry_fault::file_name_taken:
      return "is used by an earlier image";
    case entry_fault::none:
    case entry_fault::unsupported_partition:
    case entry_fault::misplaced_recovery:
      break;
  }
  return nullptr;
}

std::string in_their_own_package() {
  return "put these into a package of their own: " + names_in_group(kRecoveryGroup);
}

void check_entry(const package_head& head, uint32_t i) {
  const entry_fault fault = examine_entry(head, i);
  if (fault == entry_fault::unsupported_partition) check_partition_name(field_text(head.images[i].name));
  if (fault == entry_fault::misplaced_recovery) {
    throw image_refusal(
        head, i, "a recovery-group image follows an image of another group; " + in_their_own_package());
  }
  if (const char* const saved_name = saved_name_fault(fault)) {
    throw image_refusal(head, i,
                        "the saved name " + in_quotes(field_text(head.images[i].file_name)) + " " +
                            saved_name + "; choose another one with save-as");
  }
}

void check_table(const package_head& head) {
  switch (examine_table(head)) {
    case table_fault::too_many_store_images:
      throw refusal("the package holds " + std::to_string(count_store_images(head)) +
                    " store-group images, the updater takes " + std::to_string(kStoreImagesMax) +
                    "; split the package");
    case table_fault::unknown_first_entry:
      throw refusal("the package has no images and its unused entry 0 names " +
                    in_quotes(field_text(head.images[0].name)) +
                    ", which is in no group the updater knows; " + "put a name such as \"system\" there");
    case table_fault::foreign_image:
      throw image_refusal(
          head, *find_foreign_image(head),
          "a package that begins with a recovery-group image takes no others; " + in_their_own_package());
    case table_fault::none:
      break;
  }
}

// The updater goes on to the next image with that image's bytes. Behind the package's last byte it still
// opens one empty image, but not those behind it, of which the check stage then misses the files.
void check_empty_tail(const package_head& head) {
  uint32_t tail = head.image_num;
  while (tail > 0 && head.images[tail - 1].size == 0) --tail;
  for (uint32_t i = tail + 1; i < head.image_num; ++i) {
    if (group_of(head.images[i]) == kStoreGroup) continue;
    throw image_refusal(head, i,
                        "several empty images end the package, and the updater comes only to the first of "
                        "them; put an image with data last");
  }
}

void check_repetitions(const package_head& head, bool in_store_too) {
  for (uint32_t i = 0; i < head.image_num; ++i) {
    if (group_of(head.images[i]) == kStoreGroup && !in_store_too) continue;
    for (uint32_t k = 0; k < i; ++k) {
      if (field_text(head.images[i].name) != field_text(head.images[k].name)) continue;
      throw image_refusal(head, i,
                          "the partition is named twice, and this image would overwrite image " +
                              std::to_string(k) + "; leave one of them out");
    }
  }
}

}  // namespace

image_refusal::image_refusal(const package_head& head, uint32_t i, const std::string& fault)
    : refusal("image " + std::to_string(i) + ", " + in_quotes(field_text(head.images[i].name)) + ": " +
              fault),
      image(i) {}

void check_image_count(uint64_t image_num) {
  if (image_num <= kMaxImages) return;
  throw refusal("the package has " + std::to_string(image_num) + " images, its table has room for " +
                std::to_string(kMaxImages) + "; split the package");
}

void check_total_length(uint64_t length) {
  if (length <= kMaxPackageLength) return;
  throw refusal("the package is " + std::to_string(length) + " bytes long, the updater takes " +
                std::to_string(kMaxPackageLength) + "; split the package");
}

void check_partition_name(std::string_view name) {
  if (vexo_tarv_get_pt_type(name) != kNoGroup) return;
  throw refusal("partition " + in_quotes(name) +
                " is in no group the updater knows; use one of: " + names_in_group(kStoreGroup) + " " +
                names_in_group(kFileGroup) + " " + names_in_group(kRecoveryGroup));
}

void check_entries(const package_head& head) {
  for (uint32_t i = 0; i < head.image_num; ++i) check_entry(head, i);
  check_table(head);
  check_empty_tail(head);
  // The updater writes the second image over the first and then does not find the first. In the store it only
  // keeps both.
  check_repetitions(head, false);
}

void check_no_partition_twice(const package_head& head) {
  check_repetitions(head, true);
}

}  // namespace tools::tarv_pkg
