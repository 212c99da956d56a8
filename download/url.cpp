#include "download/url.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/number_text.h"

namespace {

constexpr int kDefaultPort = 80;

void copy_text(char* dst, std::string_view text) {
  memcpy(dst, text.data(), text.size());
  dst[text.size()] = '\0';
}

std::string_view without_scheme(std::string_view url) {
  // Lower case only. Any other scheme becomes a host name, which does not resolve.
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (url.substr(0, scheme.size()) == scheme) return url.substr(scheme.size());
  }
  return url;
}

}  // namespace

int parse_url(const char* url, char* host, char* path, int* port) {
  if (url == nullptr || *url == '\0' || host == nullptr || path == nullptr || port == nullptr) return -1;
  const std::string_view rest = without_scheme(url);
  const size_t slash = rest.find('/');
  if (slash != std::string_view::npos) copy_text(path, rest.substr(slash + 1));
  const std::string_view authority = rest.substr(0, slash);
  const size_t colon = authority.find(':');
  copy_text(host, authority.substr(0, colon));
  *port = kDefaultPort;
  if (colon != std::string_view::npos) *port = parse_decimal(authority.substr(colon + 1)).value_or(0);
  return 0;
}

int create_http_request(char* out, size_t capacity, const char* method, const char* host, const char* path,
                        const char* body, const char* extra) {
  for (const char* argument : {static_cast<const char*>(out), method, host, path, body, extra}) {
    if (argument == nullptr) return -1;
  }
  return snprintf(out, capacity,
                  "%s /%s HTTP/1.1\r\nHost: %s\r\nContent-Length: %d\r\n%sConnection: Close\r\n\r\n%s",
                  method, path, host, static_cast<int>(strlen(body)), extra, body);
}
