// tarv-pkg: the package maker's tool.
#include <csignal>
#include <cstdio>

#include "tools/common/interruption.h"
#include "tools/common/printable.h"
#include "tools/common/refusal.h"
#include "tools/tarv-pkg/command_line.h"

namespace {

int run(int argc, char* argv[]) {
  const int status = run_command_line(argc, argv);
  if (fflush(stdout) != 0 || ferror(stdout) != 0) throw system_refusal("cannot write to standard output");
  return status;
}

}  // namespace

int main(int argc, char* argv[]) {
  signal(SIGPIPE, SIG_IGN);  // a reader that has gone is a failed write,
  signal(SIGXFSZ, SIG_IGN);  // and so is a file past the user's limit
  note_interruptions();
  try {
    return run(argc, argv);
  } catch (const std::exception& fault) {
    fprintf(stderr, "tarv-pkg: %s\n", printable(fault.what()).c_str());
    return kRefused;
  }
}
