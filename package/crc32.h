// CRC-32/JAMCRC, the checksum of a package's head and of every image: reflected polynomial 0xEDB88320,
// initial value 0xFFFFFFFF, no final inversion (the complement of zlib's crc32). Check value over
// "123456789": 0x340BC6D9.
#ifndef TARVOLIN_PACKAGE_CRC32_H
#define TARVOLIN_PACKAGE_CRC32_H

#include <cstddef>
#include <cstdint>

constexpr uint32_t kCrcStart = 0xFFFFFFFF;

// Builds the process-wide tables. Needed once, before the first crc32_update.
void crc32_init_table();

// Continues the running value `crc` (kCrcStart at first) over `len` bytes and returns it.
[[nodiscard]] uint32_t crc32_update(uint32_t crc, const void* data, size_t len);

#endif
