// The run log: every progress and error message, in one file with one backup, echoed on standard output.
#ifndef TARVOLIN_MAIN_RUN_LOG_H
#define TARVOLIN_MAIN_RUN_LOG_H

#include <cstdint>

constexpr int32_t kLogSizeLimit = 524288;  // bytes; a larger log is moved aside before the next line

// Appends "[stamp] message" to the log at `path`, cut at 1023 bytes, and echoes it. A log larger than `limit`
// bytes is first moved to `backup`. A line that cannot be written to the file is still echoed. Returns 0
// always.
int tarv_log(const char* path, const char* backup, int32_t limit, const char* message);

// Size of the file in bytes; 0 when it cannot be examined.
[[nodiscard]] int32_t tarv_file_size(const char* path);

// Appends `text` to the file, creating it if needed. Returns 0, or -1 when it cannot be opened.
int tarv_append_file(const char* path, const char* text);

// Logs "operation(line): text" in the run's own log. Called through TARV_LOG.
[[gnu::format(printf, 3, 4)]] void tarv_log_line(const char* operation, int line, const char* format, ...);

// The one way to log. `operation` names the interface whose work this is, not the part of it that happens to
// run: readers of the log know the interfaces. These names and the texts are interfaces themselves (see
// docs/architecture.md).
#define TARV_LOG(operation, ...) tarv_log_line(operation, __LINE__, __VA_ARGS__)

#endif
