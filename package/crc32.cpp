#include "package/crc32.h"

#include <array>

namespace {

// Bytes of one round. Each costs a load, a lookup and an exclusive or; only the four that meet the running
// value wait for the round before. A 32-bit core has neither cache nor registers for more than eight.
constexpr size_t kStep = 2 * sizeof(size_t);

using crc_table = std::array<uint32_t, 256>;

// tables[n][b]: the CRC of byte b followed by n zero bytes.
std::array<crc_table, kStep> tables;
// Where each begins. Read from memory once a call, they stay in registers; for constants the compiler for
// 32-bit ARM computes the addresses anew for each byte.
std::array<const uint32_t*, kStep> rows;

uint32_t little_endian(const uint8_t* bytes) {
  return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

}  // namespace

void crc32_init_table() {
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t value = i;
    for (crc_table& table : tables) {
      for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320u : 0u);
      table[i] = value;
    }
  }
  for (size_t n = 0; n < kStep; ++n) rows[n] = tables[n].data();
}

uint32_t crc32_update(uint32_t crc, const void* data, size_t len) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  const auto* const end = bytes + len;
  const std::array<const uint32_t*, kStep> row = rows;
  for (const auto* const last = end - len % kStep; bytes != last; bytes += kStep) {
    const uint32_t first = little_endian(bytes) ^ crc;
    uint32_t next = 0;
#pragma GCC unroll 16
    // The bytes that need no running value come first: they fill the time until that is ready.
    for (size_t i = 4; i < kStep; ++i) next ^= row[kStep - 1 - i][bytes[i]];
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; ++i) next ^= row[kStep - 1 - i][(first >> (8 * i)) & 0xFF];
    crc = next;
  }
  for (; bytes != end; ++bytes) crc = row[0][(crc ^ *bytes) & 0xFF] ^ (crc >> 8);
  return crc;
}
