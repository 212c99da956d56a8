#include "main/run/log.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/retry.h"
#include "base/shell.h"
#include "base/unique_fd.h"
#include "main/run/result_files.h"

namespace {

void format_stamp(char* stamp, size_t capacity) {
  const time_t now = time(nullptr);
  tm local = {};
  if (const tm* broken_down = localtime(&now)) local = *broken_down;
  snprintf(stamp, capacity, "[%d%02d%02d_%02d%02d%02d]", local.tm_year + 1900, local.tm_mon + 1,
           local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
}

}  // namespace

int tarv_log(const char* path, const char* backup, int32_t limit, const char* message) {
  // Checked before the line, not after it: the log never grows beyond the limit and one line.
  if (tarv_file_size(path) > limit) {
    char command[1024];
    snprintf(command, sizeof command, "mv %s %s", path, backup);
    // If the move fails, the log grows; the next line tries again.
    tarv_run_command(command);
  }
  char stamp[80];
  format_stamp(stamp, sizeof stamp);
  char line[1024];
  snprintf(line, sizeof line, "%s %s", stamp, message);
  tarv_append_file(path, line);
  // The file may be out of reach (no room, no folder); a --debug run still shows the line.
  puts(line);
  return 0;
}

int32_t tarv_file_size(const char* path) {
  struct stat info;
  return stat(path, &info) == 0 ? static_cast<int32_t>(info.st_size) : 0;
}

int tarv_append_file(const char* path, const char* text) {
  const unique_fd fd(open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
  if (!fd.valid()) return -1;
  (void)!retry_interrupted([&] { return write(fd.get(), text, strlen(text)); });
  return 0;
}

void tarv_log_line(const char* operation, int line, const char* format, ...) {
  // Callers may log before they pass errno on.
  const int saved_errno = errno;
  char message[4096];
  const int prefix = snprintf(message, sizeof message, "%s(%d): ", operation, line);
  va_list args;
  va_start(args, format);
  vsnprintf(message + prefix, sizeof message - static_cast<size_t>(prefix), format, args);
  va_end(args);
  tarv_log(PATH_TARV_LOG, PATH_TARV_LOG_BAK, kLogSizeLimit, message);
  errno = saved_errno;
}
