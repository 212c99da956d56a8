// What tarv-fetch reads of others: headers, URLs, requests, the kernel's table of connections.
#include <gtest/gtest.h>

#include "fetch/answer.h"
#include "fetch/feeder.h"
#include "fetch/options.h"
#include "fetch/patience.h"

namespace fetch {
namespace {

using namespace std::string_literals;

TEST(FetchTexts, HeadersAreRead) {
  const auto read = [](std::initializer_list<const char*> lines) {
    answer given;
    for (const char* const line : lines) take_header_line(given, line);
    return given;
  };
  const char* const rotten[] = {"bytes 5-4/9",
                                "bytes 0-9/9",
                                "bytes 0-/9",
                                "bytes -0/9",
                                "bytes */9",
                                "byte 0-1/9",
                                "bytes 0-1",
                                "bytes 0-1/9x",
                                "bytes 0-99999999999999999999/*",
                                ""};
  for (const char* const range : rotten) {
    EXPECT_FALSE(read({("content-range:"s + range).c_str()}).range) << range;
  }
  EXPECT_EQ(read({"CONTENT-range:\tBytes 3-7/*\r\n"}).range->last, 7u);
  const std::pair<answer, const char*> validators[] = {{read({"etag: \"a\"", "last-modified: d"}), "\"a\""},
                                                       {read({"etag: W/\"a\"", "last-modified: d"}), "d"},
                                                       {read({"last-modified: d", "date: d"}), ""},
                                                       {read({"etag: \"a\x01\""}), ""},
                                                       {read({"etag: \"a\"", "HTTP/1.1 200"}), ""}};
  for (const auto& [given, validator] : validators) EXPECT_EQ(validator_of(given), validator);
  const std::pair<answer, int64_t> pauses[] = {
      {read({"retry-after: 120"}), 120},
      {read({"retry-after: 99999999999"}), INT32_MAX},
      {read({"retry-after: -5"}), 0},
      {read({"retry-after: Sun, 06 Nov 1994 08:50:37 GMT", "date: Sun, 06 Nov 1994 08:49:37 GMT"}), 60},
      {read({"retry-after: Sun, 06 Nov 1994 08:48:37 GMT", "date: Sun, 06 Nov 1994 08:49:37 GMT"}), 0}};
  for (const auto& [given, seconds] : pauses)
    EXPECT_EQ(retry_after_seconds(given), seconds) << given.retry_after;
}

TEST(FetchTexts, PlacesAndMoments) {
  const std::pair<const char*, const char*> places[] = {
      {"http://h/p.img", "http://h/p.img.digests"},
      {"https://u:p@h/p.img?X-Sig=a/b?c", "https://u:p@h/p.img.digests?X-Sig=a/b?c"},
      {"http://h/p#part", "http://h/p.digests"},
      {"a?b", "a?b.digests"}};
  for (const auto& [place, expected] : places) EXPECT_EQ(beside(place, ".digests"), expected);
  const std::pair<const char*, const char*> urls[] = {
      {"https://user:secret@h:8/p?token=1", "https://h:8/p?..."},
      {"http://h/a@b", "http://h/a@b"},
      {"http://u:a@b@h", "http://h"},
      {"http://u:p@h?x", "http://h?..."}};
  for (const auto& [url, expected] : urls) EXPECT_EQ(public_url(url), expected);
  int starts[10] = {};
  for (int i = 0; i < 10'000; ++i) ++starts[own_moment("module " + std::to_string(i), 1000) / 100'000];
  for (const int count : starts) EXPECT_NEAR(count, 1000, 150);
  EXPECT_EQ(own_moment("x", 1000), own_moment("x", 1000));
}

TEST(FetchTexts, TheFeederKnowsWhoAsks) {
  const std::string path = "/secret/package.img", good = "GET /secret/package.img HTTP/1.1\r\nHost: h\r\n";
  EXPECT_EQ(asks_for(good + "\r\n", path), true);
  EXPECT_EQ(asks_for(good, path), std::nullopt);
  const char* const wrong[] = {
      "GET /secret/package.imx HTTP/1.1\r\n\r\n", "GET /secret/package.img2 HTTP/1.1\r\n\r\n",
      "POST /secret/package.img HTTP/1.1\r\n\r\n", "GET /secre HTTP/1.1\r\n\r\n", "\r\n\r\n"};
  for (const char* const head : wrong) EXPECT_EQ(asks_for(head, path), false) << head;
  sockaddr_in ours = {}, theirs = {};
  ours.sin_addr.s_addr = theirs.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ours.sin_port = htons(0x9C40);
  theirs.sin_port = htons(0x1F90);
  char line[256];
  const auto row = [&](const char* local, const char* remote) {
    const uint32_t address = htonl(INADDR_LOOPBACK);
    snprintf(line, sizeof line,
             "  12: %08X:%s %08X:%s 01 00000000:00000000 02:00000A 00000000  1000  0 4711 1\n", address,
             local, address, remote);
    return line;
  };
  EXPECT_EQ(owner_in(row("9C40", "1F90"), ours, theirs), 1000u);
  EXPECT_EQ(owner_in(row("1F90", "9C40"), ours, theirs), std::nullopt);
  EXPECT_EQ(owner_in("  sl  local_address rem_address   st\n", ours, theirs), std::nullopt);
}

}  // namespace
}  // namespace fetch
