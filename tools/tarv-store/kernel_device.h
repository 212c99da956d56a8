// mtd/device.cpp under names of this tool's own (tools/CMakeLists.txt renames them), so that the seam to
// flash can lead to the kernel or to dumps. What would change flash is not declared.
#ifndef TARVOLIN_TOOLS_TARV_STORE_KERNEL_DEVICE_H
#define TARVOLIN_TOOLS_TARV_STORE_KERNEL_DEVICE_H

#include "mtd/device.h"

[[nodiscard]] ssize_t kernel_device_list(char* text, size_t capacity);
[[nodiscard]] int kernel_device_open(int index, mtd_access access);
[[nodiscard]] int kernel_device_close(int fd);
[[nodiscard]] int kernel_device_geometry(int fd, mtd_geometry& geometry);
[[nodiscard]] int kernel_device_is_bad(int fd, int64_t offset);
[[nodiscard]] int kernel_device_ecc(int fd, mtd_ecc_counters& counters);
[[nodiscard]] off_t kernel_device_seek(int fd, off_t offset, int whence);
[[nodiscard]] ssize_t kernel_device_read(int fd, void* data, size_t length);

#endif
