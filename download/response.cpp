#include "download/response.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/number_text.h"
#include "base/retry.h"
#include "base/unique_fd.h"
#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"
#include "package/intake.h"

namespace {

constexpr const char* kIdle = "tarv_idle_handler";
constexpr const char* kDownloading = "tarv_downloading_handler";
constexpr std::string_view kNotFound = "404 Not Found";
constexpr std::string_view kNoLength = "Transfer-Encoding: chunked not find";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr int32_t kProgressStep = 5242880;  // bytes between two progress lines

std::string_view gathered() {
  return {ginfo->http_head_buf, static_cast<size_t>(ginfo->http_head_buf_len)};
}

// Adds the bytes to the header buffer. Returns 0, or -1 when they do not fit.
int gather(const char* data, int len) {
  const int64_t total = static_cast<int64_t>(ginfo->http_head_buf_len) + len;
  if (len < 0 || total > kHttpHeadCapacity) {
    TARV_LOG(kIdle, "buffer overflow, len[%d]\n", static_cast<int>(total));
    return -1;
  }
  memcpy(ginfo->http_head_buf + ginfo->http_head_buf_len, data, static_cast<size_t>(len));
  ginfo->http_head_buf_len = static_cast<int32_t>(total);
  ginfo->http_head_buf[total] = '\0';
  return 0;
}

// Looks for the end of the header in what was gathered and appends to the header file: the header when it is
// complete, else all there is. Returns the header's length with its blank line, 0 while it is incomplete, or
// -1.
int find_header() {
  const unique_fd file(open(HTTP_HEADER_FILE, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
  if (!file.valid()) {
    perror("file open");
    TARV_LOG(kIdle, "file open HTTP_HEADER_FILE failed\n");
    return -1;
  }
  const std::string_view text = gathered();
  // In all that was gathered: servers put these words into the status line, the body, or both.
  if (text.find(kNotFound) != std::string_view::npos) {
    TARV_LOG(kIdle, "%s\n", kNotFound.data());
    tarv_write_fail_reason(kNotFound);
    return -1;
  }
  const size_t end = text.find(kHeaderEnd);
  const bool complete = end != std::string_view::npos;
  const size_t length = complete ? end + kHeaderEnd.size() : text.size();
  const ssize_t written = retry_interrupted([&] { return write(file.get(), text.data(), length); });
  if (written != static_cast<ssize_t>(length)) return -1;
  return complete ? static_cast<int>(length) : 0;
}

// Reads the package length from the size line of the first chunk, behind the header. Returns the length of
// header and size line, or -1.
int parse_chunk_size(int header_length, char* scratch) {
  constexpr std::string_view line_end = "\r\n";
  // From the header's last LF on: the size line stands between it and the next line end.
  const std::string_view body = gathered().substr(static_cast<size_t>(header_length) - 1);
  if (str_between(body, "\n", line_end, scratch) != 0) {
    TARV_LOG(kIdle, "rnrn to rn, ret is not 0\n");
    return -1;
  }
  TARV_LOG(kIdle, "rnrn to rn, ret is 0\n");
  ginfo->file_len = parse_hex(scratch).value_or(ginfo->file_len);
  TARV_LOG(kIdle, "file size[%u]\n", ginfo->file_len);
  return header_length + static_cast<int>(body.find(line_end) - 1 + line_end.size());
}

// Takes the package length from the complete header. Returns the length of all that stands before the body,
// or -1.
int parse_length(int header_length) {
  char scratch[kHttpHeadCapacity + 1];
  // Up to the end of the last header line, without the blank line.
  const std::string_view header = gathered().substr(0, static_cast<size_t>(header_length) - 2);
  if (str_between(header, "Content-Length:", "\r\n", scratch) == 0) {
    // No number leaves 0, which is refused as too short.
    if (const auto length = parse_decimal(scratch)) ginfo->file_len = static_cast<uint32_t>(*length);
    TARV_LOG(kIdle, "file size[%d]\n", ginfo->file_len);
    return header_length;
  }
  if (header.find("Transfer-Encoding: chunked") == std::string_view::npos) {
    TARV_LOG(kIdle, "Transfer-Encoding: chunked not find.\n");
    tarv_write_fail_reason(kNoLength);
    return -1;
  }
  TARV_LOG(kIdle, "Transfer-Encoding: chunked find.\n");
  return parse_chunk_size(header_length, scratch);
}

// Passes on the body bytes that came with the header. Returns 0 or -1.
int save_first_bytes(int http_head_len) {
  ginfo->content_pos = ginfo->http_head_buf + http_head_len;
  ginfo->fileoffset = static_cast<uint32_t>(ginfo->http_head_buf_len - http_head_len);
  if (ginfo->fileoffset > ginfo->file_len) {
    TARV_LOG(kIdle, "Warning! fileoffset[%d] is greater than file_len[%d]\n", ginfo->fileoffset,
             ginfo->file_len);
    ginfo->fileoffset = ginfo->file_len;
  }
  if (vexo_tarv_save_data(ginfo->content_pos, static_cast<int32_t>(ginfo->fileoffset)) < 0) {
    TARV_LOG(kIdle, "vexo_tarv_save_data failed\n");
    ginfo->download_status = TARV_DOWNLOAD_ERROR;
    return -1;
  }
  return 0;
}

// What the complete header sets in motion. Returns 0 or -1.
int start_body(int http_head_len) {
  if (ginfo->file_len < kPackageHeadSize) {
    TARV_LOG(kIdle, "ginfo->file_len: %d, error\n", ginfo->file_len);
    ginfo->download_status = TARV_DOWNLOAD_ERROR;
    tarv_write_fail_reason("file_len error\n");
    return -1;
  }
  tarv_write_int_file(PATH_TARV_FILE_SIZE, static_cast<int32_t>(ginfo->file_len));
  TARV_LOG(kIdle, "file size[%d], http_head_len: %d\n", ginfo->file_len, http_head_len);
  if (http_head_len < ginfo->http_head_buf_len && save_first_bytes(http_head_len) != 0) return -1;
  ginfo->download_status =
      ginfo->fileoffset < ginfo->file_len ? TARV_DOWNLOAD_DOWNLOADING : TARV_DOWNLOAD_FINISH;
  return 0;
}

int tarv_idle_handler(const char* data, int len) {
  if (ginfo->content_pos != nullptr) {
    TARV_LOG(kIdle, "content_pos[%p]\n", static_cast<const void*>(ginfo->content_pos));
    return -1;
  }
  if (gather(data, len) != 0) return -1;
  const int header_length = find_header();
  if (header_length <= 0) return header_length;
  const int http_head_len = parse_length(header_length);
  return http_head_len < 0 ? -1 : start_body(http_head_len);
}

int tarv_downloading_handler(const char* data, int len) {
  const uint32_t reached = ginfo->fileoffset + static_cast<uint32_t>(len);
  if (reached > ginfo->file_len) {
    TARV_LOG(kDownloading, "ERROR! fileoffset[%d] is greater than file_len[%d]\n", reached, ginfo->file_len);
    ginfo->fileoffset = ginfo->file_len;
    return -1;
  }
  if (vexo_tarv_save_data(data, len) < 0) {
    TARV_LOG(kDownloading, "vexo_tarv_save_data failed\n");
    return -1;
  }
  ginfo->fileoffset = reached;
  if (ginfo->fileoffset >= ginfo->file_len) {
    TARV_LOG(kDownloading, "download_status TARV_DOWNLOAD_FINISH\n");
    ginfo->download_status = TARV_DOWNLOAD_FINISH;
  }
  return 0;
}

}  // namespace

int vexo_tarv_download_handler(const char* data, int len) {
  if (data == nullptr) return -1;
  switch (ginfo->download_status) {
    case TARV_DOWNLOAD_IDLE:
      return tarv_idle_handler(data, len);
    case TARV_DOWNLOAD_DOWNLOADING:
      return tarv_downloading_handler(data, len);
    default:
      return 0;
  }
}

size_t curl_write_data_handle(char* data, size_t size, size_t nmemb, void*) {
  const size_t n = size * nmemb;
  if (vexo_tarv_download_handler(data, static_cast<int>(n)) < 0) return SIZE_MAX;
  tarv_log_progress(__func__, ginfo->curl_progress, static_cast<int32_t>(n));
  return n;
}

void tarv_log_progress(const char* op, int32_t& counter, int32_t received) {
  counter += received;
  if (counter < kProgressStep) return;
  TARV_LOG(op, "download: %d/%d\n", ginfo->saved_total, ginfo->file_len);
  counter -= kProgressStep;
}

int str_between(std::string_view text, std::string_view start, std::string_view end, char* out) {
  const size_t start_pos = text.find(start);
  if (start_pos == std::string_view::npos) return -1;
  const size_t from = start_pos + start.size();
  const size_t to = text.find(end, from);
  if (to == std::string_view::npos) return -1;
  memcpy(out, text.data() + from, to - from);
  out[to - from] = '\0';
  return 0;
}
