// The rules that a package head obeys by itself, on whatever module it arrives: which partitions, which file
// names, which images together. Pure functions; the updater and the package maker's tool both ask them, and
// both have words for each fault.
//
// Give each new rule a fault of its own. The compiler then asks both for the words.
#ifndef TARVOLIN_PACKAGE_HEAD_RULES_H
#define TARVOLIN_PACKAGE_HEAD_RULES_H

#include <cstdint>
#include <optional>

#include "package/format.h"
#include "store/partition_groups.h"

// Bytes of the whole package as its head gives them, modulo 2^32. Needs `image_num` of at most kMaxImages.
[[nodiscard]] uint32_t package_length(const package_head& head);

// CRC of the head's bytes before `header_crc32`. Needs crc32_init_table.
[[nodiscard]] uint32_t package_head_crc(const package_head& head);

// Partition group of an image.
[[nodiscard]] inline int group_of(const package_entry& entry) {
  return vexo_tarv_get_pt_type(field_text(entry.name));
}

// What can be wrong with one image. The file name counts for images of the file group only: it has to name a
// file of its own in the run directory.
enum class entry_fault {
  none,
  unsupported_partition,   // its partition is in no group
  misplaced_recovery,      // recovery group, in a package whose first image is not
  file_name_empty,         //
  file_name_unterminated,  // no NUL inside the field
  file_name_hidden,        // begins with ".": such a file would outlive the clean-up before the next run
  file_name_with_folder,   // holds a "/"
  file_name_of_run,        // the run itself writes a file of that name
  file_name_taken,         // an earlier image of the file group has it
};

// The first rule that entry `i` breaks, given the entries before it. Needs `image_num` of at most kMaxImages.
[[nodiscard]] entry_fault examine_entry(const package_head& head, uint32_t i);

// What can be wrong with the images together.
enum class table_fault {
  none,
  too_many_store_images,  // more than the store's head record has room for
  unknown_first_entry,  // no images, and entry 0 names a partition of no group: it is classified all the same
  foreign_image,        // a package that begins with a recovery-group image holds an image of another group
};

// The first of these, in the order in which the updater meets them. Needs entries without a fault.
[[nodiscard]] table_fault examine_table(const package_head& head);

// Its rules one by one, with the numbers that belong to them.
[[nodiscard]] uint32_t count_store_images(const package_head& head);
[[nodiscard]] bool has_unknown_first_entry(const package_head& head);
// The first foreign image of a package that begins with a recovery-group image.
[[nodiscard]] std::optional<uint32_t> find_foreign_image(const package_head& head);

#endif
