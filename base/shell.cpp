#include "base/shell.h"

#include <cstdio>
#include <cstdlib>

#include "base/descriptors.h"

void tarv_run_command(const char* command) {
  keep_descriptors_private();
  (void)!system(command);
}

int tarv_command_prints(const char* command) {
  keep_descriptors_private();
  FILE* const pipe = popen(command, "re");
  if (pipe == nullptr) return -1;
  char output[1024];
  // One piece is enough: the question is only whether there is any output.
  const size_t n = fread(output, 1, sizeof output, pipe);
  pclose(pipe);
  return n > 0 ? 1 : 0;
}
