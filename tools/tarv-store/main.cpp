// tarv-store: reads a store, on a module or from dumps of its partitions.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "tools/common/refusal.h"
#include "tools/common/tool_main.h"
#include "tools/tarv-store/command_line.h"

namespace tools::tarv_store {

namespace {

// A stream for the tool's own results. What the updater's code prints about blocks goes to standard error, so
// that it does not get between them.
FILE* take_standard_output() {
  const int fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  FILE* const out = fd < 0 ? nullptr : fdopen(fd, "w");
  if (out == nullptr) throw system_refusal("cannot write to standard output");
  // Whatever is opened later must not become standard error and receive messages.
  if (fcntl(STDERR_FILENO, F_GETFD) < 0) dup2(open("/dev/null", O_RDWR), STDERR_FILENO);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // in the order in which things happen
  return out;
}

int run(int argc, char* argv[]) {
  FILE* const out = take_standard_output();
  int status = kDone;
  std::string fault;
  try {
    status = run_command_line(argc, argv, out);
  } catch (const std::exception& found) {
    fault = found.what();
  }
  const bool written = ferror(out) == 0 && fclose(out) == 0;
  if (!fault.empty()) throw refusal(fault);
  if (!written) throw system_refusal("cannot write to standard output");
  return status;
}

}  // namespace

}  // namespace tools::tarv_store

int main(int argc, char* argv[]) {
  return tools::run_tool("tarv-store", tools::tarv_store::run, argc, argv);
}
