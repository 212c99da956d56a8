// The rules that a package head obeys by itself, on whatever module it arrives: pure functions, shared by the
// updater's head check and the package maker's tool.
#ifndef TARVOLIN_PACKAGE_HEAD_RULES_H
#define TARVOLIN_PACKAGE_HEAD_RULES_H

#include <cstdint>

#include "package/format.h"

// Bytes of the whole package as its head tells them, modulo 2^32. Needs `image_num` of at most kMaxImages.
[[nodiscard]] uint32_t package_length(const package_head& head);

// CRC of the head's bytes before `header_crc32`. Needs crc32_init_table.
[[nodiscard]] uint32_t package_head_crc(const package_head& head);

enum class entry_fault {
  none,
  unsupported_partition,  // its partition is in no group
  misplaced_recovery,     // recovery group, in a package whose first image is not
  file_name,              // file group, and its name would not make a file of its own in the run directory
};

// The first rule that entry `i` breaks, given the entries before it. Needs `image_num` of at most kMaxImages.
[[nodiscard]] entry_fault examine_entry(const package_head& head, uint32_t i);

#endif
