// The seam between the program and flash: each function is one kernel call on an MTD character device (MTD
// requests of <mtd/mtd-user.h>). mtd/device.cpp passes it to the kernel; sim/device_sim.cpp answers the same
// functions from a simulated module.
//
// Results are the kernel's: -1 with errno on failure, EINTR included. Offsets and lengths are bytes within
// the partition.
#ifndef TARVOLIN_MTD_DEVICE_H
#define TARVOLIN_MTD_DEVICE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "mtd/device_types.h"

// Reads the partition list (/proc/mtd) with one read of at most `capacity` bytes. Returns the number of bytes
// read.
[[nodiscard]] ssize_t mtd_device_list(char* text, size_t capacity);

// Opens partition "/dev/mtd<index>". Returns a descriptor for the functions below, close-on-exec.
[[nodiscard]] int mtd_device_open(int index, mtd_access access);
// Closes it. Returns 0 or -1; the descriptor is gone either way.
[[nodiscard]] int mtd_device_close(int fd);

// Returns 0 and fills `geometry`, or -1.
[[nodiscard]] int mtd_device_geometry(int fd, mtd_geometry& geometry);
// Asks whether the block at `offset` is bad. Returns 0 for good, above 0 for bad, -1 when the query fails
// (EOPNOTSUPP: the device has no bad-block table).
[[nodiscard]] int mtd_device_is_bad(int fd, int64_t offset);
// Erases `length` bytes from `start`, both on block boundaries. EIO for a bad or failing block.
[[nodiscard]] int mtd_device_erase(int fd, uint32_t start, uint32_t length);
// Returns 0 and fills `counters`, or -1.
[[nodiscard]] int mtd_device_ecc(int fd, mtd_ecc_counters& counters);

// As lseek(2): returns the resulting position.
[[nodiscard]] off_t mtd_device_seek(int fd, off_t offset, int whence);
// As read(2). An uncorrectable page returns wrong bytes with the full count; only the ECC counters tell.
[[nodiscard]] ssize_t mtd_device_read(int fd, void* data, size_t length);
// As write(2), in whole pages. The kernel does not refuse a bad block or a page that was not erased: callers
// must.
[[nodiscard]] ssize_t mtd_device_write(int fd, const void* data, size_t length);

#endif
