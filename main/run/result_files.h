// Writing and reading the small files of the run directory, whose names are in run_directory.h.
//
// Writers never report a failure: a file that cannot be written is absent, and readers take that as "not
// known".
#ifndef TARVOLIN_MAIN_RUN_RESULT_FILES_H
#define TARVOLIN_MAIN_RUN_RESULT_FILES_H

#include <cstdint>
#include <string_view>

#include "main/run/run_directory.h"

constexpr uint32_t kImagePathCapacity = 512;

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
