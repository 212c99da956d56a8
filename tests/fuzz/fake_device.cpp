// Partitions that answer, all blocks good, and nothing on them.
#include "mtd/device.h"
#include "tests/fuzz/fuzz.h"

std::string fake_list;
int fake_silent = -1;
int fake_open = 0;

ssize_t mtd_device_list(char* text, size_t capacity) {
  return static_cast<ssize_t>(fake_list.copy(text, capacity));
}
int mtd_device_open(int index, mtd_access) {
  ++fake_open;
  return index;
}
int mtd_device_close(int) {
  return --fake_open >= 0 ? 0 : -1;
}
int mtd_device_geometry(int fd, mtd_geometry& geometry) {
  geometry = {1 << 20, 1 << 17, 1 << 11};
  return fd == fake_silent ? -1 : 0;
}
int mtd_device_is_bad(int, int64_t) {
  return 0;
}
int mtd_device_erase(int, uint32_t, uint32_t) {
  return -1;
}
int mtd_device_ecc(int, mtd_ecc_counters&) {
  return -1;
}
off_t mtd_device_seek(int, off_t offset, int) {
  return offset;
}
ssize_t mtd_device_read(int, void*, size_t) {
  return -1;
}
ssize_t mtd_device_write(int, const void*, size_t) {
  return -1;
}
