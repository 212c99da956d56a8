// "crc-rounds time" compares the checksum with a byte-wise loop and zlib's: prints MB/s of the three.
// "crc-rounds NAME PASSES" makes passes of one of them over 4 KiB, for counting instructions.
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "package/crc32.h"

namespace {

constexpr int kRounds = 25;           // the fastest counts: the machine has other work, too
constexpr int kPassesPerRound = 500;  // of 4 KiB

using checksum = uint32_t (*)(uint32_t crc, const uint8_t* data, uint32_t len);

std::array<uint8_t, 4096> buffer;
std::array<uint32_t, 256> table;
unsigned long (*zlib_crc32)(unsigned long crc, const uint8_t* data, unsigned len);

uint32_t bytewise(uint32_t crc, const uint8_t* data, uint32_t len) {
  for (uint32_t i = 0; i < len; ++i) crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
  return crc;
}

uint32_t ours(uint32_t crc, const uint8_t* data, uint32_t len) {
  return crc32_update(crc, data, len);
}

uint32_t zlib(uint32_t crc, const uint8_t* data, uint32_t len) {
  return ~static_cast<uint32_t>(zlib_crc32(~crc, data, len));
}

struct contender {
  const char* name;
  checksum function;
  double megabytes_per_second = 0;
};

uint32_t make_passes(checksum function, int passes) {
  uint32_t crc = kCrcStart;
  for (int i = 0; i < passes; ++i) crc = function(crc, buffer.data(), buffer.size());
  return crc;
}

void time_once(contender& one) {
  using clock = std::chrono::steady_clock;
  const auto begin = clock::now();
  const uint32_t crc = make_passes(one.function, kPassesPerRound);
  const double seconds = std::chrono::duration<double>(clock::now() - begin).count();
  if (crc != make_passes(bytewise, kPassesPerRound)) {
    fprintf(stderr, "crc-rounds: %s is wrong\n", one.name);
    exit(1);
  }
  one.megabytes_per_second = std::max(one.megabytes_per_second, kPassesPerRound * 4096 / 1e6 / seconds);
}

}  // namespace

int main(int argc, char* argv[]) {
  crc32_init_table();
  for (uint32_t i = 0; i < table.size(); ++i) {
    const auto byte = static_cast<uint8_t>(i);
    table[i] = crc32_update(0, &byte, 1);
  }
  for (size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<uint8_t>(i * i * 37 + i / 7);
  std::array<contender, 3> all = {{{"bytewise", bytewise}, {"ours", ours}, {"zlib", zlib}}};
  if (argc == 3) {
    for (const contender& one : all) {
      if (strcmp(one.name, argv[1]) == 0) printf("%08x\n", make_passes(one.function, atoi(argv[2])));
    }
    return 0;
  }
  void* const library = dlopen("libz.so.1", RTLD_NOW);
  if (library == nullptr) return 1;
  zlib_crc32 = reinterpret_cast<decltype(zlib_crc32)>(dlsym(library, "crc32"));
  for (int round = 0; round < kRounds; ++round) {
    for (contender& one : all) time_once(one);
  }
  for (const contender& one : all) printf("%.0f ", one.megabytes_per_second);
  return 0;
}
