// The seam to flash as the updater has it: every call goes to the kernel.
#include "mtd/device.h"

#include "mtd/kernel_device.h"

ssize_t mtd_device_list(char* text, size_t capacity) {
  return kernel_device_list(text, capacity);
}

int mtd_device_open(int index, mtd_access access) {
  return kernel_device_open(index, access);
}

int mtd_device_close(int fd) {
  return kernel_device_close(fd);
}

int mtd_device_geometry(int fd, mtd_geometry& geometry) {
  return kernel_device_geometry(fd, geometry);
}

int mtd_device_is_bad(int fd, int64_t offset) {
  return kernel_device_is_bad(fd, offset);
}

int mtd_device_erase(int fd, uint32_t start, uint32_t length) {
  return kernel_device_erase(fd, start, length);
}

int mtd_device_ecc(int fd, mtd_ecc_counters& counters) {
  return kernel_device_ecc(fd, counters);
}

off_t mtd_device_seek(int fd, off_t offset, int whence) {
  return kernel_device_seek(fd, offset, whence);
}

ssize_t mtd_device_read(int fd, void* data, size_t length) {
  return kernel_device_read(fd, data, length);
}

ssize_t mtd_device_write(int fd, const void* data, size_t length) {
  return kernel_device_write(fd, data, length);
}
