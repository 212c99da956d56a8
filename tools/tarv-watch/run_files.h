// One look at a run directory: what its files say at this moment.
#ifndef TARVOLIN_TOOLS_TARV_WATCH_RUN_FILES_H
#define TARVOLIN_TOOLS_TARV_WATCH_RUN_FILES_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include "main/run/run_directory.h"

namespace tools::tarv_watch {

using known_number = std::optional<int32_t>;  // as the file has it; nothing: not known

// Times of the download, check and install stages and of the whole run, in this order.
constexpr size_t kTimes = 4;
constexpr std::array<const char*, kTimes> kTimeFiles = {PATH_TARV_DOWNLOAD_TIME, PATH_TARV_CHECK_TIME,
                                                        PATH_TARV_INSTALL_TIME, PATH_TARV_TOTAL_TIME};

struct run_look {
  bool present = false;  // "status" is there: a run has begun, or had
  known_number status;   // what it holds: 0 to 6; nothing when it is empty or anything else
  std::string history;   // "status_str" up to its last line end; empty when it is not there
  // Inode and time of birth of "status_str", which no two runs share; some file systems know no birth.
  std::tuple<uint64_t, int64_t, uint32_t> identity;
  double status_age = 0;  // seconds since the last status was published, by the wall clock
  known_number file_size;
  known_number download_size;
  std::array<known_number, kTimes> times;
  std::string fail_reason;  // without its line end; 8-bit text of unknown origin
};

// Reads the run directory `dir`, which need not be there yet. A file that is empty for a moment is read
// again; whatever is missing is not known. Throws a refusal when `dir` is no folder, or it or a file that
// tells the status may not be read.
[[nodiscard]] run_look look_at_run(const std::string& dir);

// Whether an updater holds the lock on its pid file. `missing`: there is no such file, or nothing in it.
enum class pid_lock { held, free, missing };

// Asks for the lock on `pid_file`. Throws a refusal when the file may not be read or is no updater's.
[[nodiscard]] pid_lock ask_pid_lock(const std::string& pid_file);

}  // namespace tools::tarv_watch

#endif
