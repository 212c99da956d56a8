// The run directory: the small files through which the world follows a run. docs/run-directory.md describes
// them.
//
// Writers never report a failure: a file that cannot be written is absent, and readers take that as "not
// known".
#ifndef TARVOLIN_MAIN_RUN_RESULT_FILES_H
#define TARVOLIN_MAIN_RUN_RESULT_FILES_H

#include <cstdint>
#include <string_view>

#define TARV_RUN_DIR "/tmp/tarvolin"

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

constexpr uint32_t kImagePathCapacity = 512;

// True when `name` is that of a file which the run itself writes in the run directory.
[[nodiscard]] bool tarv_is_run_file(std::string_view name);

// Builds the path of the image file `file_name` (NUL-terminated) in the run directory.
void tarv_image_path(char (&path)[kImagePathCapacity], const char* file_name);

// Publishes the run's status: appends its name to "status_str", then writes its number to "status".
void tarv_write_status();

// Replaces the file with `value` in decimal, no line end. Returns 0 always.
int tarv_write_int_file(const char* path, int32_t value);

// The number at the start of the file's first line, or -1 when there is no file or no number.
[[nodiscard]] int32_t tarv_read_int_file(const char* path);

// Replaces the file with `len` bytes; does nothing when `len` is below 1. Returns 0 always.
int tarv_write_file(const char* path, const void* data, int32_t len);

// Replaces the failure reason with a text: what a user reads when the run has failed. The last writer wins.
void tarv_write_fail_reason(std::string_view reason);

// Package bytes saved so far as the run directory has it: 0 when the file is missing, holds no number or a
// negative one.
[[nodiscard]] int32_t tarv_get_download_size();
// Publishes that number. The file stays open and is overwritten for as long as the number grows, so that
// readers never find it empty. A shorter number and a file that was removed have it made anew.
void tarv_set_download_size(int32_t size);
// Closes it: nothing more will be saved.
void tarv_close_download_size();

#endif
