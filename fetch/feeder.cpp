#include "fetch/feeder.h"

#include <arpa/inet.h>
#include <sodium.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace fetch {

namespace {

constexpr size_t kMaxRequestHead = 4096;        // bytes
constexpr size_t kMaxVisitors = 8;              // at a time
constexpr milliseconds kRequestLimit = 10'000;  // to ask for something
constexpr int kSendBuffer = 128 * 1024;         // bytes in the kernel that are as good as passed on

sockaddr* general(sockaddr_in& address) {
  return reinterpret_cast<sockaddr*>(&address);
}

// Empty, with errno, when there is no entropy.
std::string secret_path() {
  std::array<unsigned char, 16> bits;
  char hex[2 * sizeof bits + 1];
  if (getrandom(bits.data(), bits.size(), 0) != static_cast<ssize_t>(bits.size())) return {};
  return std::string("/") + sodium_bin2hex(hex, sizeof hex, bits.data(), bits.size()) + "/package.img";
}

}  // namespace

std::optional<bool> asks_for(std::string_view head, std::string_view path) {
  if (head.find("\r\n\r\n") == std::string_view::npos) return std::nullopt;
  const std::string wanted = "GET " + std::string(path) + " HTTP/1.";
  // In a time that does not tell how much of the path was right.
  return head.size() >= wanted.size() && sodium_memcmp(head.data(), wanted.data(), wanted.size()) == 0;
}

std::optional<uid_t> owner_in(const char* line, const sockaddr_in& end, const sockaddr_in& other_end) {
  uint32_t local = 0, remote = 0, uid = 0;
  uint16_t local_port = 0, remote_port = 0;
  const int found = sscanf(
      line, "%*d: %8" SCNx32 ":%4" SCNx16 " %8" SCNx32 ":%4" SCNx16 " %*x %*x:%*x %*x:%*x %*x %" SCNu32,
      &local, &local_port, &remote, &remote_port, &uid);
  if (found != 5 || local != end.sin_addr.s_addr || remote != other_end.sin_addr.s_addr) return std::nullopt;
  if (local_port != ntohs(end.sin_port) || remote_port != ntohs(other_end.sin_port)) return std::nullopt;
  return uid;
}

feeder::~feeder() {
  close();
}

int feeder::open(uint64_t length) {
  length_ = length;
  path_ = secret_path();
  if (path_.empty()) return -1;
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (listener_ < 0 || bind(listener_, general(address), size) != 0 || listen(listener_, kMaxVisitors) != 0 ||
      getsockname(listener_, general(address), &size) != 0) {
    return -1;
  }
  url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + path_;
  return 0;
}

size_t feeder::push(std::string_view bytes) {
  const size_t taken = hold_->push(bytes);
  hold_->want_room(bytes.size() - taken);
  return taken;
}

void feeder::finish() {
  hold_->finish();
}

void feeder::add_sockets(std::vector<curl_waitfd>& sockets, milliseconds now) const {
  if (listener_ >= 0) sockets.push_back({listener_, CURL_WAIT_POLLIN, 0});
  for (const visitor& guest : visitors_) sockets.push_back({guest.fd, CURL_WAIT_POLLIN, 0});
  if (!connected() || lost_) return;
  const bool sends = !hold_->sendable(now).empty();
  sockets.push_back({client_, static_cast<short>(CURL_WAIT_POLLIN | (sends ? CURL_WAIT_POLLOUT : 0)), 0});
}

milliseconds feeder::next_time(milliseconds now) const {
  milliseconds next = now + kRequestLimit;
  for (const visitor& guest : visitors_) next = std::min(next, guest.since + kRequestLimit);
  if (connected() && !lost_ && !hold_->empty()) next = std::min(next, std::max(now + 1, hold_->next_drop()));
  return next;
}

void feeder::serve(milliseconds now) {
  if (listener_ >= 0) accept_visitors(now);
  hear_visitors(now);
  if (!connected() || lost_) return;
  watch_client();
  if (!lost_) send_bytes(now);
}

void feeder::accept_visitors(milliseconds now) {
  for (;;) {
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) return;
    if (!is_ours(fd)) {
      turn_away(fd);
      continue;
    }
    // Those who came first have had their time.
    if (visitors_.size() == kMaxVisitors) {
      turn_away(visitors_.front().fd);
      visitors_.erase(visitors_.begin());
    }
    visitors_.push_back({fd, now, {}});
  }
}

// Other users of the module can connect to the port, and could have read the path from a log.
bool feeder::is_ours(int fd) const {
  sockaddr_in own = {}, peer = {};
  socklen_t size = sizeof own;
  if (getsockname(fd, general(own), &size) != 0 || getpeername(fd, general(peer), &size) != 0) return false;
  FILE* const table = fopen("/proc/net/tcp", "re");
  if (table == nullptr) return false;
  std::optional<uid_t> owner;
  char line[512];
  while (!owner && fgets(line, sizeof line, table) != nullptr) owner = owner_in(line, peer, own);
  fclose(table);
  return owner == geteuid();
}

void feeder::hear_visitors(milliseconds now) {
  for (size_t i = 0; i < visitors_.size();) {
    visitor& guest = visitors_[i];
    char piece[1024];
    const ssize_t n = recv(guest.fd, piece, sizeof piece, 0);
    if (n > 0) guest.head.append(piece, static_cast<size_t>(n));
    const bool gone = n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR);
    const std::optional<bool> right = asks_for(guest.head, path_);
    const bool late = now >= guest.since + kRequestLimit || guest.head.size() > kMaxRequestHead;
    if (!right && !gone && !late) {
      ++i;
      continue;
    }
    const int fd = guest.fd;
    visitors_.erase(visitors_.begin() + static_cast<std::ptrdiff_t>(i));
    if (right != true) {
      turn_away(fd);
    } else {
      welcome(fd, now);
      return;
    }
  }
}

// Nobody else is listened to from here on.
void feeder::welcome(int fd, milliseconds now) {
  ::close(listener_);
  listener_ = -1;
  for (const visitor& guest : visitors_) turn_away(guest.fd);
  visitors_.clear();
  client_ = fd;
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  const std::string header = "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                             std::to_string(length_) + "\r\nConnection: close\r\n\r\n";
  // A new connection takes as much in one go.
  lost_ = send(fd, header.data(), header.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(header.size());
  hold_->restart_clock(now);
}

void feeder::turn_away(int fd) {
  ++turned_away_;
  ::close(fd);
}

// The updater says nothing more after its request: what can be read is the end of the connection.
void feeder::watch_client() {
  char byte;
  const ssize_t n = recv(client_, &byte, 1, MSG_DONTWAIT);
  if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) lost_ = true;
}

void feeder::send_bytes(milliseconds now) {
  for (;;) {
    const std::string_view bytes = hold_->sendable(now);
    if (bytes.empty()) break;
    const ssize_t n = send(client_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      lost_ = errno != EAGAIN;
      break;
    }
    hold_->sent(static_cast<size_t>(n), now);
    sent_ += static_cast<uint64_t>(n);
  }
  if (delivered()) shutdown(client_, SHUT_WR);
}

void feeder::close() {
  for (const visitor& guest : visitors_) turn_away(guest.fd);
  visitors_.clear();
  for (int* const fd : {&listener_, &client_}) {
    if (*fd >= 0) ::close(*fd);
    *fd = -1;
  }
}

}  // namespace fetch
