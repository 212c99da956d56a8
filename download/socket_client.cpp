#include "download/socket_client.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "base/retry.h"
#include "base/unique_fd.h"
#include "download/completion.h"
#include "download/response.h"
#include "download/url.h"
#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"

namespace {

constexpr const char* kOp = "vexo_tarv_http_download";
constexpr int kConnectSeconds = 3;
constexpr int kTransferSeconds = 30;
constexpr size_t kReceiveBlock = 4096;
constexpr size_t kRequestCapacity = 1023;

struct target {
  char host[sizeof ginfo->url] = "";
  char path[sizeof ginfo->url] = "";
  int port = 0;
};

// The address of the first entry in the host's address list. Returns 0, or -1 with a failure reason.
int resolve(const target& server, sockaddr_in& address) {
  const hostent* const host = gethostbyname(server.host);
  if (host == nullptr || host->h_addrtype != AF_INET || host->h_addr_list[0] == nullptr) {
    TARV_LOG(kOp, "Gethostname error");
    tarv_write_fail_reason("Gethostname error");
    return -1;
  }
  address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(server.port));
  memcpy(&address.sin_addr, host->h_addr_list[0], sizeof address.sin_addr);
  return 0;
}

// Sets a socket time-out. A refusal is logged and the download goes on without it.
void set_timeout(int fd, int option, const char* option_name, int seconds) {
  const timeval timeout = {seconds, 0};
  if (setsockopt(fd, SOL_SOCKET, option, &timeout, sizeof timeout) != 0) {
    TARV_LOG(kOp, "setsockopt %s %d", option_name, seconds);
  }
}

// Waits for the outcome of a connect that was interrupted: the kernel goes on with it, and a second connect
// would be refused. Returns 0, or -1 with errno.
int await_connection(int fd) {
  using clock = std::chrono::steady_clock;
  const clock::time_point end = clock::now() + std::chrono::seconds(kConnectSeconds);
  const int ready = retry_interrupted([&] {
    pollfd connection = {fd, POLLOUT, 0};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock::now()).count();
    return poll(&connection, 1, static_cast<int>(std::max<int64_t>(left, 0)));
  });
  if (ready == 0) errno = EINPROGRESS;  // the kernel's own error for a connect that runs into its time-out
  if (ready <= 0) return -1;
  int error = 0;
  socklen_t size = sizeof error;
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return -1;
  errno = error;
  return error == 0 ? 0 : -1;
}

// Connects; Linux bounds a blocking connect by the send time-out. Returns 0, or -1 with a failure reason.
int connect_to(int fd, const sockaddr_in& address) {
  set_timeout(fd, SO_SNDTIMEO, "SO_SNDTIMEO", kConnectSeconds);
  int result = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (result != 0 && errno == EINTR) result = await_connection(fd);
  if (result != 0) {
    char reason[256];
    snprintf(reason, sizeof reason, "Connect Error: %s\n", strerror(errno));
    tarv_write_fail_reason(reason);
    TARV_LOG(kOp, "%s", reason);
    return -1;
  }
  TARV_LOG(kOp, "http connect success\n");
  set_timeout(fd, SO_SNDTIMEO, "SO_SNDTIMEO", kTransferSeconds);
  set_timeout(fd, SO_RCVTIMEO, "SO_RCVTIMEO", kTransferSeconds);
  return 0;
}

// Renders the request for the package from the resume offset onwards. Returns 0, or -1, logged.
int build_request(const target& server, char (&request)[kRequestCapacity + 1]) {
  // 0, unless the run directory could not be emptied. The header line is sent all the same.
  ginfo->resume_offset = tarv_get_download_size();
  char range[1024];
  snprintf(range, sizeof range, "Range: bytes=%d-\r\n", ginfo->resume_offset);
  if (create_http_request(request, kRequestCapacity, "GET", server.host, server.path, "", range) >= 0)
    return 0;
  TARV_LOG(kOp, "create_http_request Error: %s\n", strerror(errno));
  return -1;
}

// Sends the whole request. Returns 0, or -1, logged.
int send_request(int fd, const char* request) {
  const size_t length = strlen(request);
  size_t sent = 0;
  while (sent < length) {
    const ssize_t n = retry_interrupted([&] { return write(fd, request + sent, length - sent); });
    if (n <= 0) {
      TARV_LOG(kOp, "write return -1");
      return -1;
    }
    sent += static_cast<size_t>(n);
  }
  TARV_LOG(kOp, "totalsend: %d, nbytes: %d\n", static_cast<int>(sent), static_cast<int>(length));
  return 0;
}

// Bytes to ask for. While the header is gathered, no more than its buffer still takes: a header may arrive in
// pieces, with a full block of body behind it. At least one, so that a header that is too long is noticed.
size_t next_read_size() {
  if (ginfo->download_status != TARV_DOWNLOAD_IDLE) return kReceiveBlock;
  const auto room = static_cast<size_t>(kHttpHeadCapacity - ginfo->http_head_buf_len);
  return std::clamp<size_t>(room, 1, kReceiveBlock);
}

// Feeds the response intake until the connection ends, in whatever way: the bytes saved show whether that was
// too early. Returns 0, or -1 when a block was refused, logged.
int receive_response(int fd) {
  TARV_LOG(kOp, "The following is the response:\n");
  char block[kReceiveBlock];
  for (;;) {
    // A process that is stopped and continued gets EINTR here, since the socket has a time-out.
    const ssize_t n = retry_interrupted([&] { return read(fd, block, next_read_size()); });
    // A time-out, a reset and an orderly close look alike from here on.
    if (n <= 0) return 0;
    if (vexo_tarv_download_handler(block, static_cast<int>(n)) < 0) {
      TARV_LOG(kOp, "vexo_tarv_download_handler error\n");
      return -1;
    }
    tarv_log_progress(kOp, ginfo->socket_progress, static_cast<int32_t>(n));
  }
}

// The exchange with the server, from connecting to the end of the connection. Returns 0, or -1, logged.
int fetch(const target& server) {
  sockaddr_in address;
  if (resolve(server, address) != 0) return -1;
  const unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) {
    TARV_LOG(kOp, "Socket Error:%s\n", strerror(errno));
    return -1;
  }
  char request[kRequestCapacity + 1];
  if (connect_to(fd.get(), address) != 0 || build_request(server, request) != 0) return -1;
  if (send_request(fd.get(), request) != 0) return -1;
  return receive_response(fd.get());
}

}  // namespace

int vexo_tarv_http_download() {
  target server;
  (void)!parse_url(ginfo->url, server.host, server.path, &server.port);
  if (fetch(server) != 0) return -1;
  return tarv_complete_download(kOp, false);
}
