#include "base/shell.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "base/number_text.h"

namespace {

// Marks every descriptor but the standard three close-on-exec: a library may have opened some without.
void keep_descriptors_private() {
  DIR* const open_descriptors = opendir("/proc/self/fd");
  if (open_descriptors == nullptr) return;
  while (const dirent* entry = readdir(open_descriptors)) {
    const int fd = parse_decimal(entry->d_name).value_or(-1);
    if (fd > STDERR_FILENO) fcntl(fd, F_SETFD, FD_CLOEXEC);
  }
  closedir(open_descriptors);
}

}  // namespace

void tarv_run_command(const char* command) {
  keep_descriptors_private();
  (void)!system(command);
}

int tarv_command_prints(const char* command) {
  keep_descriptors_private();
  FILE* const pipe = popen(command, "re");
  if (pipe == nullptr) return -1;
  char output[1024];
  const size_t n = fread(output, 1, sizeof output, pipe);
  pclose(pipe);
  return n > 0 ? 1 : 0;
}
