// The way into a package: URL, request, and the response up to the first package byte.
#include "download/response.h"

#include <climits>
#include <cstring>

#include "download/url.h"
#include "tests/unit/simulated_module.h"

namespace {

using namespace std::string_literals;

TEST(Url, IsTakenApart) {
  const struct {
    const char *url, *parts;  // host, port, path
  } cases[] = {{"http://h:81/dir/p", "h 81 dir/p"}, {"https://h/a?b=c:1/", "h 80 a?b=c:1/"},
               {"h:8x", "h 8 untouched"},           {"http://h:/", "h 0 "},
               {"HTTP://h/x", "HTTP 0 /h/x"},       {"h:99999/x", "h 99999 x"}};
  char host[64], path[64];
  int port = -1;
  for (const auto& c : cases) {
    strcpy(path, "untouched");
    EXPECT_EQ(parse_url(c.url, host, path, &port), 0);
    EXPECT_EQ(host + " "s + std::to_string(port) + " " + path, c.parts) << c.url;
  }
  EXPECT_EQ(parse_url("", host, path, &port), -1);
  EXPECT_EQ(parse_url("h", nullptr, path, &port), -1);
  EXPECT_EQ(parse_url("h", host, nullptr, &port), -1);
  EXPECT_EQ(parse_url("h", host, path, nullptr), -1);
}

TEST(Url, RequestIsCutAtItsCapacity) {
  char out[75];
  EXPECT_EQ(create_http_request(out, sizeof out, "GET", "h", "p", "body", "X: y\r\n"), 76);
  EXPECT_STREQ(out, "GET /p HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\nX: y\r\nConnection: Close\r\n\r\nbo");
  EXPECT_EQ(create_http_request(out, sizeof out, "GET", "h", "p", "b", nullptr), -1);
}

class Response : public SimulatedModule {
 protected:
  static int take(const std::string& bytes) {
    return vexo_tarv_download_handler(bytes.data(), static_cast<int>(bytes.size()));
  }
};

TEST_F(Response, HeadersAreTakenAndRefused) {
  const struct {
    std::string header, body;
    int state;  // 1: taken
    uint32_t length;
    const char* reason;
  } cases[] = {
      {"Content-Length:3536", "oxev", 1, 3536, ""},
      {"Content-Length: 3535", "", 3, 3535, "file_len error\n"},
      {"Content-Length: none", "", 3, 0, "file_len error\n"},
      {"Content-Length: -1", "", 1, UINT32_MAX, ""},
      {"Content-Length: 3537\r\nContent-Length: 3536", "", 1, 3537, ""},
      {"Content-Length: 17\0x"s, "", 3, 17, "file_len error\n"},
      {"Content\0-Length: 3536"s, "", 0, 0, "Transfer-Encoding: chunked not find"},
      {"content-length: 3536", "", 0, 0, "Transfer-Encoding: chunked not find"},
      {"Server: x", "Content-Length: 3536\r\n\r\n", 0, 0, "Transfer-Encoding: chunked not find"},
      {"X: a\0b\r\nContent-Length: 3536\0"s, "", 1, 3536, ""},
      {"X: a\0b"s, "404 Not Found", 0, 0, "404 Not Found"},
      {"Transfer-Encoding: chunked\r\nContent-Length: 3536", "ffff", 1, 3536, ""},
      {"Transfer-Encoding: chunked", "0xDD1;name=value\r\noxev", 1, 3537, ""},
      {"Transfer-Encoding: chunked", "fffffffff\r\n", 1, UINT32_MAX, ""},
      {"Transfer-Encoding: chunked", "\r\nddf\r\n", 3, 0, "file_len error\n"},
      {"Transfer-Encoding: chunked", "\0dd0\r\n"s, 3, 0, "file_len error\n"},
      {"Transfer-Encoding: chunked", "dd0\r", 0, 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.header + " / " + c.body);
    start("");
    EXPECT_EQ(take("HTTP/1.1 200 OK\r\n" + c.header + "\r\n\r\n" + c.body), c.state == 1 ? 0 : -1);
    EXPECT_EQ(ginfo->download_status, c.state);
    EXPECT_EQ(ginfo->file_len, c.length);
    EXPECT_EQ(run_file("fail_reason"), c.reason);
    EXPECT_EQ(run_file("file_size"), c.state == 1 ? std::to_string(static_cast<int32_t>(c.length)) : "");
    EXPECT_EQ(ginfo->head_bytes, c.state == 1 && !c.body.empty() && c.length < INT32_MAX ? 4 : 0);
  }
}

TEST_F(Response, HeaderFillsItsBufferAndNoMore) {
  start("");
  const std::string end = "Content-Length: 3536\r\n\r\n", rest = std::string(4095 - end.size(), 'x') + end;
  EXPECT_EQ(take("X"), 0);
  EXPECT_EQ(vexo_tarv_download_handler("x", INT_MAX), -1);
  EXPECT_EQ(vexo_tarv_download_handler("x", -1), -1);
  EXPECT_EQ(vexo_tarv_download_handler(nullptr, 0), -1);
  EXPECT_EQ(take("x" + rest), -1);
  EXPECT_EQ(take(rest), 0);
  EXPECT_EQ(ginfo->download_status, TARV_DOWNLOAD_DOWNLOADING);
  EXPECT_EQ(run_file("http_header"), "XX" + rest);  // once while it was incomplete, once whole
}

TEST_F(Response, BodyEndsAtTheAnnouncedLength) {
  start("");
  EXPECT_EQ(take("Content-Length: 3536\r\n\r\n" + std::string(3540, 'x')), -1);  // cut, but no package
  EXPECT_EQ(ginfo->fileoffset, 3536u);
  EXPECT_EQ(ginfo->download_status, TARV_DOWNLOAD_ERROR);

  start("");
  ASSERT_EQ(take("Content-Length: 3536\r\n\r\nabc"), 0);
  EXPECT_EQ(take(std::string(3534, 'x')), -1);
  EXPECT_EQ(ginfo->download_status, TARV_DOWNLOAD_DOWNLOADING);
  EXPECT_EQ(ginfo->fileoffset, 3536u);
  char more[10] = {};
  EXPECT_EQ(curl_write_data_handle(more, 1, 1, nullptr), SIZE_MAX);
  ginfo->curl_progress = 5242865;
  for (const int state : {TARV_DOWNLOAD_FINISH, TARV_DOWNLOAD_ERROR}) {
    ginfo->download_status = state;
    EXPECT_EQ(run_file("tarv_log").find("curl_write_data_handle("), std::string::npos);
    EXPECT_EQ(curl_write_data_handle(more, 5, 2, nullptr), 10u);
  }
  EXPECT_NE(run_file("tarv_log").find("curl_write_data_handle("), std::string::npos);
  EXPECT_EQ(ginfo->curl_progress, 5);
  ginfo->download_status = TARV_DOWNLOAD_IDLE;
  EXPECT_EQ(take("more"), -1);  // the body has begun
  EXPECT_EQ(ginfo->head_bytes, 3);
}

}  // namespace
