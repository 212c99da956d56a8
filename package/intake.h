// The package intake: routes package bytes, as they arrive, to where each image waits for its installation.
//
// Store-group images go into the store (each filled up to 4096 bytes), file-group images into files of the
// run directory, recovery-group images into their own partitions. No image is held in memory.
#ifndef TARVOLIN_PACKAGE_INTAKE_H
#define TARVOLIN_PACKAGE_INTAKE_H

#include <cstdint>

// Takes the next `len` bytes of the package. The head is gathered, checked and copied to the run directory
// first. Returns 0 when the bytes were taken, or -1, logged; after -1 no more bytes may be given.
// ginfo->write_ctx stays open after the last byte: the download client closes it.
[[nodiscard]] int32_t vexo_tarv_save_data(const void* buf, int32_t len);

#endif
