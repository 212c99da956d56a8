// The URL taken apart and the request built from its parts. Input: the URL.
#include <algorithm>
#include <cstring>
#include <vector>

#include "download/url.h"
#include "tests/fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string url(reinterpret_cast<const char*>(data), size);
  const size_t room = strlen(url.c_str()) + 1;  // exactly what the parts may take
  std::vector<char> host(room), path(room), request(1 + size * 7 % 1024);
  int port = -1;
  const int result = parse_url(url.c_str(), host.data(), path.data(), &port);
  REQUIRE(result == (room == 1 ? -1 : 0));
  if (result != 0) return 0;
  REQUIRE(strpbrk(host.data(), ":/") == nullptr && url.find(host.data()) != std::string::npos);
  REQUIRE(url.find(path.data()) != std::string::npos);
  const int length =
      create_http_request(request.data(), request.size(), "GET", host.data(), path.data(), "", "X: y\r\n");
  REQUIRE(length > 0 && strlen(request.data()) == std::min(static_cast<size_t>(length), request.size() - 1));
  return 0;
}
