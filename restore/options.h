// The command line of tarv-restore.
#ifndef TARVOLIN_RESTORE_OPTIONS_H
#define TARVOLIN_RESTORE_OPTIONS_H

namespace restore {

constexpr char kUsualPidFile[] = "/var/run/tarvolin.pid";

struct options {
  const char* pid_file = kUsualPidFile;  // whose lock keeps updaters and other restores away
  bool only_check = false;               // nothing is written
  bool keep_armed = false;
  bool as_json = false;
};

enum class command { run, stop, refuse };

// Reads the command line. `stop` when help or version was asked for and printed, `refuse` after a sentence on
// standard error.
[[nodiscard]] command read_options(int argc, char* argv[], options& given);

}  // namespace restore

#endif
