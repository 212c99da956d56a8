// tarv-restore: from an armed store to running firmware.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/descriptors.h"
#include "restore/fault.h"
#include "restore/lock.h"
#include "restore/progress.h"
#include "restore/restore.h"

namespace {

bool is_set(const char* name) {
  const char* const value = getenv(name);
  return value != nullptr && value[0] != '\0';
}

// A stream for what the restore shows. What the flash layer prints goes to standard error, so that it does
// not get between.
FILE* take_standard_output() {
  const int fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  FILE* const out = fd < 0 ? nullptr : fdopen(fd, "w");
  if (out == nullptr) return stdout;
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return out;
}

void choose_form(const restore::options& wanted) {
  const char* const terminal = getenv("TERM");
  const bool on_terminal = isatty(STDOUT_FILENO) != 0 && terminal != nullptr && strcmp(terminal, "dumb") != 0;
  FILE* const out = take_standard_output();
  if (wanted.as_json) {
    restore::show_progress(out, restore::progress_form::json, false);
  } else if (on_terminal) {
    restore::show_progress(out, restore::progress_form::terminal, !is_set("NO_COLOR"));
  } else {
    restore::show_progress(out, restore::progress_form::lines, false);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  occupy_standard_descriptors();
  signal(SIGPIPE, SIG_IGN);  // a restore goes on when nobody listens any longer
  restore::options wanted;
  switch (restore::read_options(argc, argv, wanted)) {
    case restore::command::stop:
      return restore::kRestored;
    case restore::command::refuse:
      return restore::kWrongUsage;
    default:
      choose_form(wanted);
      if (restore::take_lock(wanted.pid_file) == 0) return restore::run_restore(wanted);
      restore::show_outcome(restore::fault_text(), restore::kLocked);
      return restore::kLocked;
  }
}
