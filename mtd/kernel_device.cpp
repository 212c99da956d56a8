#include "mtd/kernel_device.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "base/retry.h"
#include "base/unique_fd.h"

// What the kernel reads and writes through its requests, on 32-bit and 64-bit hosts alike.
static_assert(sizeof(off_t) == 8 && sizeof(loff_t) == 8, "positions beyond 2 GiB");
static_assert(sizeof(erase_info_user) == 8 && sizeof(mtd_ecc_stats) == 16 && sizeof(mtd_info_user) == 32,
              "request layouts of <mtd/mtd-user.h>");

ssize_t kernel_device_list(char* text, size_t capacity) {
  const unique_fd fd(open("/proc/mtd", O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return -1;
  // One read: /proc/mtd is made anew for each, and two pieces could come from two different lists.
  return retry_interrupted([&] { return read(fd.get(), text, capacity); });
}

int kernel_device_open(int index, mtd_access access) {
  char path[32];
  snprintf(path, sizeof path, "/dev/mtd%d", index);
  return open(path, (access == mtd_access::read_write ? O_RDWR : O_RDONLY) | O_CLOEXEC);
}

int kernel_device_close(int fd) {
  return close(fd);
}

int kernel_device_geometry(int fd, mtd_geometry& geometry) {
  mtd_info_user info = {};
  if (ioctl(fd, MEMGETINFO, &info) != 0) return -1;
  geometry = {info.size, info.erasesize, info.writesize};
  return 0;
}

int kernel_device_is_bad(int fd, int64_t offset) {
  // The kernel reads 64 bits here whatever the host, so no off_t of another width will do.
  loff_t block_offset = offset;
  return ioctl(fd, MEMGETBADBLOCK, &block_offset);
}

int kernel_device_erase(int fd, uint32_t start, uint32_t length) {
  erase_info_user request = {start, length};
  return ioctl(fd, MEMERASE, &request);
}

int kernel_device_ecc(int fd, mtd_ecc_counters& counters) {
  mtd_ecc_stats stats = {};
  if (ioctl(fd, ECCGETSTATS, &stats) != 0) return -1;
  counters = {stats.corrected, stats.failed};
  return 0;
}

off_t kernel_device_seek(int fd, off_t offset, int whence) {
  return lseek(fd, offset, whence);
}

ssize_t kernel_device_read(int fd, void* data, size_t length) {
  return read(fd, data, length);
}

ssize_t kernel_device_write(int fd, const void* data, size_t length) {
  return write(fd, data, length);
}
