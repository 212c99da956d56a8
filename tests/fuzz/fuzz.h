// What the fuzz targets share. Each is a program of its own, started by tests/fuzz/run inside lab/namespace.
#ifndef TARVOLIN_TESTS_FUZZ_FUZZ_H
#define TARVOLIN_TESTS_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "package/crc32.h"
#include "package/head_rules.h"

// libFuzzer calls it with one input after the other. Returns 0 always.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

[[noreturn, gnu::noinline]] inline void fuzz_broken() {
  __builtin_trap();
}

// Ends the program when a promise is broken; libFuzzer then saves the input. Calls are not merged, so that
// the stack tells the line.
#define REQUIRE(condition)             \
  if (!(condition)) [[clang::nomerge]] \
  fuzz_broken()

// Makes the head of a package pass the checks that mutated bytes cannot pass by themselves.
inline void mend(package_head& head) {
  static const bool table_made = (crc32_init_table(), true);
  head.magic = table_made ? TARV_PACKAGE_MAGIC : 0;
  head.meta_hdr_sz = kPackageHeadSize;
  head.header_crc32 = package_head_crc(head);
}

// fake_device.cpp: a seam to flash that costs next to nothing.
extern std::string fake_list;  // text of the partition list
extern int fake_silent;        // number of a partition that does not answer
extern int fake_open;          // descriptors open now

#endif
