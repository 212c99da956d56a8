// Makes single calls at the seam to flash and prints what they answer, so that the simulator can be held
// against the kernel. Reads one call a line: open INDEX ro|rw, info, bad OFFSET, erase START LENGTH, seek
// OFFSET set|cur|end, read LENGTH, write LENGTH BYTE, ecc, close.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "mtd/device.h"

namespace {

int fd = -1;
mtd_ecc_counters baseline;

// What a read delivered, short: equal bytes as one, others by a sum.
std::string describe(const std::vector<uint8_t>& bytes, ssize_t count) {
  uint32_t sum = 0;
  bool same = true;
  for (ssize_t i = 0; i < count; ++i) {
    sum = sum * 31 + bytes[static_cast<size_t>(i)];
    same = same && bytes[static_cast<size_t>(i)] == bytes[0];
  }
  char text[32];
  snprintf(text, sizeof text, same ? "all %02x" : "sum %08x", same && count > 0 ? bytes[0] : sum);
  return text;
}

std::string ecc_change() {
  mtd_ecc_counters now = {};
  if (mtd_device_ecc(fd, now) != 0) return "failed";
  std::string change = now.failed != baseline.failed ? "uncorrectable" : "fine";
  baseline = now;
  return change;
}

int open_device(std::istringstream& words) {
  int index = 0;
  std::string access;
  words >> index >> access;
  fd = mtd_device_open(index, access == "rw" ? mtd_access::read_write : mtd_access::read_only);
  if (fd < 0) return -1;
  (void)ecc_change();
  return 0;
}

long long seek(std::istringstream& words) {
  long long offset = 0;
  std::string from;
  words >> offset >> from;
  return mtd_device_seek(fd, static_cast<off_t>(offset),
                         from == "cur"   ? SEEK_CUR
                         : from == "end" ? SEEK_END
                                         : SEEK_SET);
}

// Makes the call in `words`; `extra` gets what it delivered besides its result.
long long make_call(const std::string& name, std::istringstream& words, std::string& extra) {
  if (name == "open") return open_device(words);
  if (name == "close") return mtd_device_close(fd);
  if (name == "seek") return seek(words);
  if (name == "ecc") {
    extra = ecc_change();
    return 0;
  }
  if (name == "info") {
    mtd_geometry geometry = {};
    const int result = mtd_device_geometry(fd, geometry);
    extra = std::to_string(geometry.size) + " " + std::to_string(geometry.erase_size) + " " +
            std::to_string(geometry.write_size);
    return result;
  }
  long long first = 0, second = 0;
  words >> first >> second;
  if (name == "bad") return mtd_device_is_bad(fd, first);
  if (name == "erase")
    return mtd_device_erase(fd, static_cast<uint32_t>(first), static_cast<uint32_t>(second));
  std::vector<uint8_t> bytes(static_cast<size_t>(first), static_cast<uint8_t>(second));
  if (name == "write") return mtd_device_write(fd, bytes.data(), bytes.size());
  const ssize_t count = mtd_device_read(fd, bytes.data(), bytes.size());
  // An uncorrectable page may deliver anything.
  extra = ecc_change();
  if (extra == "fine") extra = describe(bytes, count);
  return count;
}

}  // namespace

int main() {
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream words(line);
    std::string name, extra;
    words >> name;
    errno = 0;
    const long long result = make_call(name, words, extra);
    const char* const error = result < 0 ? strerrorname_np(errno) : "";
    printf("%s -> %lld %s %s\n", line.c_str(), result, error, extra.c_str());
  }
  return 0;
}
