// One look at a run directory: what its files say at this moment.
#ifndef TARVOLIN_TOOLS_TARV_WATCH_RUN_FILES_H
#define TARVOLIN_TOOLS_TARV_WATCH_RUN_FILES_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include "main/run/run_directory.h"

using known_number = std::optional<int32_t>;  // nothing: not known

// Times of the download, check and install stages and of the whole run, in this order.
constexpr size_t kTimes = 4;
constexpr std::array<const char*, kTimes> kTimeFiles = {PATH_TARV_DOWNLOAD_TIME, PATH_TARV_CHECK_TIME,
                                                        PATH_TARV_INSTALL_TIME, PATH_TARV_TOTAL_TIME};

struct run_look {
  std::string history;  // "status_str" up to its last line end; empty: no run is known
  // Inode and time of birth of "status_str", which no two runs share; some file systems know no birth.
  std::tuple<uint64_t, int64_t, uint32_t> identity;
  double status_age = 0;  // seconds since the last status was published, by the wall clock
  known_number file_size;
  known_number download_size;
  std::array<known_number, kTimes> times;
  std::string fail_reason;  // without its line end; 8-bit text of unknown origin
};

// Reads the run directory `dir`. A file that is empty for a moment is read again; whatever cannot be read is
// not known.
[[nodiscard]] run_look look_at_run(const std::string& dir);

// True when no updater holds the lock on `pid_file`; false when one does, or when that cannot be told.
[[nodiscard]] bool no_updater_holds(const std::string& pid_file);

#endif
