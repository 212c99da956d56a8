#include "package/crc32.h"

#include <array>

namespace {
std::array<uint32_t, 256> table;
}

void crc32_init_table() {
  for (uint32_t i = 0; i < table.size(); ++i) {
    uint32_t value = i;
    for (int round = 0; round < 8; ++round) value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320u : 0u);
    table[i] = value;
  }
}

uint32_t crc32_update(uint32_t crc, const void* data, size_t len) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  for (size_t i = 0; i < len; ++i) crc = table[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
  return crc;
}
