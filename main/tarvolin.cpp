// The updater's entry point: from the command line to the end of a run.
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/descriptors.h"
#include "base/shell.h"
#include "main/daemon.h"
#include "main/options.h"
#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"
#include "main/stages.h"

namespace {

constexpr const char* kOp = "main";

void empty_run_directory() {
  char command[1024];
  snprintf(command, sizeof command, "rm -rf %s/*", TARV_RUN_DIR);
  // The shell's "*" leaves names that begin with "." alone, so no image may have one (package/head_rules.h).
  tarv_run_command(command);
  if (mkdir(TARV_RUN_DIR, 0755) != 0) TARV_LOG(kOp, "mkdir %s\n", strerror(errno));
}

// Runs the stages in order. Returns 0, or the exit status of the one that failed.
int run_stages() {
  if (vexo_tarv_download() < 0) {
    TARV_LOG(kOp, "vexo_tarv_download failed\n");
    return -1;
  }
  if (vexo_tarv_check() < 0) {
    TARV_LOG(kOp, "vexo_tarv_check failed\n");
    return -2;
  }
  if (vexo_tarv_install() < 0) {
    TARV_LOG(kOp, "vexo_tarv_install failed\n");
    return -3;
  }
  return 0;
}

void report_success() {
  const auto now = static_cast<uint32_t>(time(nullptr));
  const auto total = static_cast<int32_t>(now - ginfo->start_time);
  ginfo->stage_time = now;
  TARV_LOG(kOp, ">> vexo_tarvolin all success, total consume %ds\n\n", total);
  tarv_write_int_file(PATH_TARV_TOTAL_TIME, total);
  tarv_write_status();
}

}  // namespace

int main(int argc, char* argv[]) {
  occupy_standard_descriptors();
  // A server or a reader of the log may go away at any time; the write then fails, and the run goes on.
  signal(SIGPIPE, SIG_IGN);
  setvbuf(stdout, nullptr, _IOLBF, 0);  // a reader of a --debug run's pipe sees each line at once
  tarv_init_info();
  switch (tarv_parse_options(argc, argv)) {
    case tarv_start::exit_success:
      return 0;
    case tarv_start::exit_failure:
      return -1;
    case tarv_start::run_detached:
      tarv_daemonize();
      break;
    case tarv_start::run_in_foreground:
      break;
  }
  // After the fork: record locks do not pass to children. Before any file of the run is touched.
  check_process_running();

  ginfo->start_time = static_cast<uint32_t>(time(nullptr));
  ginfo->stage_time = static_cast<uint32_t>(time(nullptr));
  empty_run_directory();
  TARV_LOG(kOp, "type: %d, url: %s, rmrfnvbak: %d\n", ginfo->type, ginfo->url, ghead->rmrfnvbak);
  tarv_write_status();
  const int result = run_stages();
  if (result == 0) report_success();
  return result;
}
