#include "base/descriptors.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "base/number_text.h"

namespace {

constexpr int kNumbersWithoutProc = 1024;  // tried one by one where /proc cannot be read

// Calls `work(fd)` for each. `work` must not close any: the listing's own descriptor is among them.
template <typename Work>
void for_each_descriptor(Work work) {
  DIR* const listing = opendir("/proc/self/fd");
  if (listing == nullptr) {
    for (int fd = STDERR_FILENO + 1; fd < kNumbersWithoutProc; ++fd) work(fd);
    return;
  }
  while (const dirent* entry = readdir(listing)) {
    const int fd = parse_decimal(entry->d_name).value_or(-1);
    if (fd > STDERR_FILENO) work(fd);
  }
  closedir(listing);
}

}  // namespace

void occupy_standard_descriptors() {
  int fd;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

void keep_descriptors_private() {
  for_each_descriptor([](int fd) { fcntl(fd, F_SETFD, FD_CLOEXEC); });
}

void close_inherited_descriptors() {
  // Closing while listing would close the listing itself, so only the highest number is kept.
  int highest = STDERR_FILENO;
  for_each_descriptor([&](int fd) { highest = fd > highest ? fd : highest; });
  for (int fd = STDERR_FILENO + 1; fd <= highest; ++fd) close(fd);
}
