#include "restore/options.h"

#include <getopt.h>

#include <cstdio>

#include "base/version.h"

namespace restore {

namespace {

enum long_only : int { kPidFile = 256, kCheck, kKeep, kJson };

constexpr option kOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"pid-file", required_argument, nullptr, kPidFile},
    {"check", no_argument, nullptr, kCheck},
    {"keep", no_argument, nullptr, kKeep},
    {"json", no_argument, nullptr, kJson},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

constexpr char kHelp[] =
    "Restores the images of an armed store into their partitions.\n"
    "Usage: tarv-restore [OPTIONS]\n"
    "\n"
    "Options:\n"
    "  -h,--help                   Print this help message and exit\n"
    "  --pid-file FILE             The updater's pid file, whose lock is taken,\n"
    "                              default /var/run/tarvolin.pid\n"
    "  --check                     Prove the store and look at the targets only\n"
    "  --keep                      Leave the store armed\n"
    "  --json                      Print one JSON object a line for each change\n"
    "  -V,--version                Display program version information and exit\n"
    "\n"
    "Exit status:\n"
    "  0   every target holds its image, the store is no longer armed\n"
    "  1   an updater or another restore runs\n"
    "  2   wrong usage\n"
    "  10  the store or a target is not fit; nothing was written\n"
    "  11  a target or the disarming failed\n"
    "  20  there is nothing to restore\n";

command refuse() {
  fprintf(stderr, "Try \"tarv-restore --help\".\n");
  return command::refuse;
}

// True when standard output took all that was printed.
bool is_written() {
  if (fflush(stdout) == 0 && ferror(stdout) == 0) return true;
  perror("tarv-restore: cannot write to standard output");
  return false;
}

}  // namespace

command read_options(int argc, char* argv[], options& given) {
  optind = 1;
  for (int c; (c = getopt_long(argc, argv, "hV", kOptions, nullptr)) != -1;) {
    switch (c) {
      case 'h':
        fputs(kHelp, stdout);
        return is_written() ? command::stop : command::refuse;
      case 'V':
        printf("tarv-restore %s\n", version_text);
        return is_written() ? command::stop : command::refuse;
      case kPidFile:
        given.pid_file = optarg;
        break;
      case kCheck:
        given.only_check = true;
        break;
      case kKeep:
        given.keep_armed = true;
        break;
      case kJson:
        given.as_json = true;
        break;
      default:
        return refuse();
    }
  }
  if (optind < argc) {
    fprintf(stderr, "tarv-restore: nothing is to follow the options\n");
    return refuse();
  }
  if (given.pid_file[0] != '\0') return command::run;
  fprintf(stderr, "tarv-restore: --pid-file is empty; name a file\n");
  return refuse();
}

}  // namespace restore
