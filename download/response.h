// The HTTP response intake: splits a raw response into header and body, takes the package length from the
// header and passes the body on to the package intake as it arrives. Shared by both download clients.
//
// The package length is what "Content-Length:" announces or, failing that, the size of the first chunk of a
// chunked response. Header names are matched as written (RFC 9112 has them case-insensitive; servers that
// send lower case are refused). Of the status only "404 Not Found" is looked at.
#ifndef TARVOLIN_DOWNLOAD_RESPONSE_H
#define TARVOLIN_DOWNLOAD_RESPONSE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

// Takes the next `len` bytes of the response, status line and header included. Returns 0 to go on, or -1 when
// the download must stop, logged. Once the announced length was taken, more bytes are ignored.
[[nodiscard]] int vexo_tarv_download_handler(const char* data, int len);

// The same with libcurl's write callback signature (CURLOPT_WRITEFUNCTION): returns size * nmemb, or SIZE_MAX
// to make libcurl end the transfer. `user` is ignored.
size_t curl_write_data_handle(char* data, size_t size, size_t nmemb, void* user);

// Adds `received` bytes to a client's progress `counter` and logs about every 5 MiB, as the operation `op`.
void tarv_log_progress(const char* op, int32_t& counter, int32_t received);

// Copies what stands between the first `start` in `text` and the first `end` after it, NUL-terminated, into
// `out`, which holds text.size() + 1 bytes. Returns 0, or -1 with `out` untouched when a marker is missing.
[[nodiscard]] int str_between(std::string_view text, std::string_view start, std::string_view end, char* out);

#endif
