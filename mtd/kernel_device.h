// The kernel's calls on MTD character devices and on the partition list: what mtd/device.h promises, under
// names of its own. Programs that are not content with the kernel alone at that seam (tarv-store, which reads
// dumps too, and the timed updater) call them from theirs.
#ifndef TARVOLIN_MTD_KERNEL_DEVICE_H
#define TARVOLIN_MTD_KERNEL_DEVICE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "mtd/device_types.h"

[[nodiscard]] ssize_t kernel_device_list(char* text, size_t capacity);
[[nodiscard]] int kernel_device_open(int index, mtd_access access);
[[nodiscard]] int kernel_device_close(int fd);
[[nodiscard]] int kernel_device_geometry(int fd, mtd_geometry& geometry);
[[nodiscard]] int kernel_device_is_bad(int fd, int64_t offset);
[[nodiscard]] int kernel_device_erase(int fd, uint32_t start, uint32_t length);
[[nodiscard]] int kernel_device_ecc(int fd, mtd_ecc_counters& counters);
[[nodiscard]] off_t kernel_device_seek(int fd, off_t offset, int whence);
[[nodiscard]] ssize_t kernel_device_read(int fd, void* data, size_t length);
[[nodiscard]] ssize_t kernel_device_write(int fd, const void* data, size_t length);

#endif
