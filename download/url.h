// The download URL taken apart, and the HTTP/1.1 request (RFC 9112) built from its parts. Pure functions.
#ifndef TARVOLIN_DOWNLOAD_URL_H
#define TARVOLIN_DOWNLOAD_URL_H

#include <cstddef>

// Splits [http://|https://]host[:port][/path]. `host` and `path` each take as many bytes as `url` has, NUL
// included; `path` comes without its leading "/" and is left alone when the URL has none. `port` is 80 by
// default, 0 when it is no number. Returns 0, or -1 when `url` is empty or an output is null.
[[nodiscard]] int parse_url(const char* url, char* host, char* path, int* port);

// Renders the request into `out`, at most `capacity` bytes with the NUL; each line of `extra` ends in CR LF.
// Returns the length of the whole request, which is cut when that is `capacity` or more; -1 when a pointer is
// null.
[[nodiscard]] int create_http_request(char* out, size_t capacity, const char* method, const char* host,
                                      const char* path, const char* body, const char* extra);

#endif
