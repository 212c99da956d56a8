// The names through which the world follows a run: the run directory, its files, the statuses, the pid file.
// docs/run-directory.md describes them. Starters and watchers rely on every one of them.
//
// This header includes nothing of ours, so that tools can use it without the updater's records.
#ifndef TARVOLIN_MAIN_RUN_RUN_DIRECTORY_H
#define TARVOLIN_MAIN_RUN_RUN_DIRECTORY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#define TARV_RUN_DIR "/tmp/tarvolin"
#define TARV_PID_DIR "/var/run"
#define TARV_PID_ENDING ".pid"  // behind the file name of the running executable

constexpr char PATH_TARV_PID[] = TARV_PID_DIR "/tarvolin" TARV_PID_ENDING;  // under its usual name

constexpr char PATH_TARV_STATUS[] = TARV_RUN_DIR "/status";
constexpr char PATH_TARV_STATUS_STR[] = TARV_RUN_DIR "/status_str";
constexpr char PATH_TARV_FAIL_REASON[] = TARV_RUN_DIR "/fail_reason";
constexpr char PATH_TARV_DOWNLOAD_TIME[] = TARV_RUN_DIR "/download_time";
constexpr char PATH_TARV_CHECK_TIME[] = TARV_RUN_DIR "/check_time";
constexpr char PATH_TARV_INSTALL_TIME[] = TARV_RUN_DIR "/install_time";
constexpr char PATH_TARV_TOTAL_TIME[] = TARV_RUN_DIR "/total_time";
constexpr char PATH_TARV_DOWNLOAD_SIZE[] = TARV_RUN_DIR "/download_size";
constexpr char PATH_TARV_FILE_SIZE[] = TARV_RUN_DIR "/file_size";
constexpr char PATH_TARV_PT_TYPE[] = TARV_RUN_DIR "/pt_type";
constexpr char PATH_TARV_HEAD[] = TARV_RUN_DIR "/head";
constexpr char HTTP_HEADER_FILE[] = TARV_RUN_DIR "/http_header";
constexpr char PATH_TARV_LOG[] = TARV_RUN_DIR "/tarv_log";
constexpr char PATH_TARV_LOG_BAK[] = TARV_RUN_DIR "/tarv_log_bak";

// Every file that a run writes there by itself. No image of a package may have the name of one.
inline constexpr std::array<const char*, 14> kRunFiles = {
    PATH_TARV_STATUS,     PATH_TARV_STATUS_STR,   PATH_TARV_FAIL_REASON, PATH_TARV_DOWNLOAD_TIME,
    PATH_TARV_CHECK_TIME, PATH_TARV_INSTALL_TIME, PATH_TARV_TOTAL_TIME,  PATH_TARV_DOWNLOAD_SIZE,
    PATH_TARV_FILE_SIZE,  PATH_TARV_PT_TYPE,      PATH_TARV_HEAD,        HTTP_HEADER_FILE,
    PATH_TARV_LOG,        PATH_TARV_LOG_BAK,
};

// The file name of one of the paths above.
constexpr const char* tarv_run_file_name(const char* path) {
  return path + sizeof TARV_RUN_DIR;  // the NUL of the folder's name counts for the "/"
}

// True when `name` is that of a file which the run itself writes in the run directory.
[[nodiscard]] constexpr bool tarv_is_run_file(std::string_view name) {
  for (const char* const path : kRunFiles) {
    if (name == tarv_run_file_name(path)) return true;
  }
  return false;
}

// Where a run stands. The number is published in "status".
enum tarv_status : int32_t {
  TARV_STATUS_IDLE = 0,
  TARV_STATUS_DOWNLOAD = 1,
  TARV_STATUS_CHECK = 2,
  TARV_STATUS_INSTALL = 3,
  TARV_STATUS_RESTORE = 4,
  TARV_STATUS_SUCCESS = 5,
  TARV_STATUS_FAILED = 6,
};

// The line of each status in "status_str", by its number.
inline constexpr std::array<std::string_view, 7> kStatusLines = {
    "TARV_STATUS_IDLE\n",    "TARV_STATUS_DOWNLOAD\n", "TARV_STATUS_CHECK\n",  "TARV_STATUS_INSTALL\n",
    "TARV_STATUS_RESTORE\n", "TARV_STATUS_SUCCESS\n",  "TARV_STATUS_FAILED\n",
};
static_assert(kStatusLines.size() == TARV_STATUS_FAILED + 1, "a line for each status");

#endif
