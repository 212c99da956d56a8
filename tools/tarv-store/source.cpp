#include "tools/tarv-store/source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>

#include "mtd/device.h"
#include "mtd/kernel_device.h"
#include "tools/tarv-store/dumps.h"

namespace tools::tarv_store {

namespace {

uint32_t dump_erase_size = 0;
std::vector<partition_dump> dumps;                // empty: the module's flash
std::map<int, const partition_dump*> open_dumps;  // by descriptor

// Stands in for all that would change flash.
int refuse_change() {
  errno = EROFS;
  return -1;
}

}  // namespace

void read_from_dumps(const std::string& folder, std::optional<uint32_t> erase_size) {
  dumps = find_dumps(folder, erase_size);
  dump_erase_size = *erase_size;
}

bool reads_dumps() {
  return !dumps.empty();
}

bool is_dump(const std::string& path) {
  const auto is_same = [&](const partition_dump& dump) {
    std::error_code none;
    return std::filesystem::equivalent(path, dump.path, none) ||
           std::filesystem::equivalent(path, dump.bad_list, none);
  };
  return std::any_of(dumps.begin(), dumps.end(), is_same);
}

}  // namespace tools::tarv_store

// The seam is global: mtd/device.h declares it for every program.
using namespace tools::tarv_store;

ssize_t mtd_device_list(char* text, size_t capacity) {
  if (dumps.empty()) return kernel_device_list(text, capacity);
  std::string list = "dev:    size   erasesize  name\n";
  for (size_t i = 0; i < dumps.size(); ++i) {
    char line[128];
    snprintf(line, sizeof line, "mtd%zu: %08x %08x \"%s\"\n", i, dumps[i].size, dump_erase_size,
             dumps[i].name.c_str());
    list += line;
  }
  return static_cast<ssize_t>(list.copy(text, capacity));
}

int mtd_device_open(int index, mtd_access access) {
  if (access != mtd_access::read_only) return refuse_change();
  if (dumps.empty()) return kernel_device_open(index, access);
  const partition_dump& dump = dumps[static_cast<size_t>(index)];
  const int fd = open(dump.path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) open_dumps[fd] = &dump;
  return fd;
}

int mtd_device_close(int fd) {
  open_dumps.erase(fd);
  return kernel_device_close(fd);
}

// Nobody here asks for the page size, which a dump does not tell.
int mtd_device_geometry(int fd, mtd_geometry& geometry) {
  if (dumps.empty()) return kernel_device_geometry(fd, geometry);
  geometry = {open_dumps.at(fd)->size, dump_erase_size, dump_erase_size};
  return 0;
}

int mtd_device_is_bad(int fd, int64_t offset) {
  if (dumps.empty()) return kernel_device_is_bad(fd, offset);
  return open_dumps.at(fd)->bad[static_cast<size_t>(offset / dump_erase_size)] ? 1 : 0;
}

int mtd_device_ecc(int fd, mtd_ecc_counters& counters) {
  if (dumps.empty()) return kernel_device_ecc(fd, counters);
  counters = {};
  return 0;
}

off_t mtd_device_seek(int fd, off_t offset, int whence) {
  return kernel_device_seek(fd, offset, whence);
}

ssize_t mtd_device_read(int fd, void* data, size_t length) {
  return kernel_device_read(fd, data, length);
}

int mtd_device_erase(int, uint32_t, uint32_t) {
  return refuse_change();
}

ssize_t mtd_device_write(int, const void*, size_t) {
  return refuse_change();
}
