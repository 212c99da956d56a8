#include "main/run/result_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/number_text.h"
#include "base/retry.h"
#include "base/unique_fd.h"
#include "main/run/record.h"

namespace {

constexpr std::string_view kUnknownStatusLine = "TARV_STATUS_ERR_INPUT\n";

// Calls `write_from(done, left)` until nothing is left or a write fails. A write of nothing ends it too: on a
// full /tmp it would never get further.
template <typename Write>
void write_fully(size_t len, Write write_from) {
  for (size_t done = 0; done < len;) {
    const ssize_t n = retry_interrupted([&] { return write_from(done, len - done); });
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

// Opens `path` for writing with `mode_flag` (O_TRUNC or O_APPEND) and writes the bytes. Failures are silent:
// an update must not fail because its progress cannot be shown.
void put_file(const char* path, int mode_flag, const void* data, size_t len) {
  const unique_fd fd(open(path, O_WRONLY | O_CREAT | O_CLOEXEC | mode_flag, 0666));
  if (!fd.valid()) return;
  const char* const bytes = static_cast<const char*>(data);
  write_fully(len, [&](size_t done, size_t left) { return write(fd.get(), bytes + done, left); });
}

// True when the open file still has its name, and holds no longer text than the next one. Then overwriting it
// leaves exactly the new text, and no reader ever finds the file empty.
bool can_overwrite(int fd, size_t len) {
  struct stat info;
  return fd >= 0 && fstat(fd, &info) == 0 && info.st_nlink > 0 && info.st_size <= static_cast<off_t>(len);
}

}  // namespace

void tarv_image_path(char (&path)[kImagePathCapacity], const char* file_name) {
  snprintf(path, sizeof path, "%s/%s", TARV_RUN_DIR, file_name);
}

void tarv_write_status() {
  const auto status = static_cast<uint32_t>(ginfo->status);
  const std::string_view line = status < kStatusLines.size() ? kStatusLines[status] : kUnknownStatusLine;
  // The name first: whoever sees the new number finds its line.
  put_file(PATH_TARV_STATUS_STR, O_APPEND, line.data(), line.size());
  tarv_write_int_file(PATH_TARV_STATUS, ginfo->status);
}

int tarv_write_int_file(const char* path, int32_t value) {
  char text[64];
  const int len = snprintf(text, sizeof text, "%d", value);
  put_file(path, O_TRUNC, text, static_cast<size_t>(len));
  return 0;
}

int32_t tarv_read_int_file(const char* path) {
  const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return -1;
  char text[63];
  const ssize_t n = retry_interrupted([&] { return read(fd.get(), text, sizeof text); });
  if (n <= 0) return -1;
  const std::string_view first_read(text, static_cast<size_t>(n));
  return parse_decimal(first_read.substr(0, first_read.find('\n'))).value_or(-1);
}

int tarv_write_file(const char* path, const void* data, int32_t len) {
  if (len >= 1) put_file(path, O_TRUNC, data, static_cast<size_t>(len));
  return 0;
}

void tarv_write_fail_reason(std::string_view reason) {
  tarv_write_file(PATH_TARV_FAIL_REASON, reason.data(), static_cast<int32_t>(reason.size()));
}

int32_t tarv_get_download_size() {
  const int32_t size = tarv_read_int_file(PATH_TARV_DOWNLOAD_SIZE);
  return size < 0 ? 0 : size;
}

void tarv_set_download_size(int32_t size) {
  char text[16];
  const auto len = static_cast<size_t>(snprintf(text, sizeof text, "%d", size));
  int32_t& fd = ginfo->download_size_fd;
  if (!can_overwrite(fd, len)) {
    tarv_close_download_size();
    fd = open(PATH_TARV_DOWNLOAD_SIZE, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  }
  if (fd < 0) return;
  write_fully(
      len, [&](size_t done, size_t left) { return pwrite(fd, text + done, left, static_cast<off_t>(done)); });
}

void tarv_close_download_size() {
  if (ginfo->download_size_fd >= 0) close(ginfo->download_size_fd);
  ginfo->download_size_fd = -1;
}
