// CRC of an image that stands at the start of its own partition.
#ifndef TARVOLIN_PACKAGE_PARTITION_CRC_H
#define TARVOLIN_PACKAGE_PARTITION_CRC_H

#include "package/format.h"

constexpr uint32_t kReadPiece = 4096;  // bytes read and checked at a time

// Reads image `index` of the package back from the partition that its entry names and compares its CRC; logs
// under the operation name `op`. Returns 0 when it stands there whole, else -1, logged.
[[nodiscard]] int check_partition_image(const char* op, const package_entry& entry, uint32_t index);

// Compares the computed CRC of image `index` with its entry's; logs a difference, or "... `what` check
// success". Returns 0 or -1.
[[nodiscard]] int judge_image_crc(const char* op, const package_entry& entry, uint32_t index, uint32_t crc,
                                  const char* what);

#endif
