// The updater's server: one answer over the loopback interface, for one client, which has to know a secret
// path and to run as our own user.
#ifndef TARVOLIN_FETCH_FEEDER_H
#define TARVOLIN_FETCH_FEEDER_H

#include <curl/curl.h>
#include <netinet/in.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/unique_fd.h"
#include "fetch/hold.h"

namespace fetch {

// Whether this is the whole head of a GET request for `path`. Nothing while its end has not come.
[[nodiscard]] std::optional<bool> asks_for(std::string_view head, std::string_view path);

// The user of the process that holds `end` of a TCP connection over IPv4 to `other_end`, from a line of the
// kernel's table (/proc/net/tcp); nothing when the line is of another connection.
[[nodiscard]] std::optional<uid_t> owner_in(const char* line, const sockaddr_in& end,
                                            const sockaddr_in& other_end);

class feeder {
 public:
  feeder() = default;
  feeder(const feeder&) = delete;
  feeder& operator=(const feeder&) = delete;
  ~feeder();

  // Listens on a free port of 127.0.0.1, for a package of `length` bytes. Returns 0, or -1 with errno.
  [[nodiscard]] int open(uint64_t length);
  // What the updater has to ask for.
  const std::string& url() const { return url_; }

  // Takes proven bytes, as many as there is room for. Returns how many.
  [[nodiscard]] size_t push(std::string_view bytes);
  // No more bytes follow.
  void finish();

  // Adds the sockets to wait for.
  void add_sockets(std::vector<curl_waitfd>& sockets, milliseconds now) const;
  // When serve() has to be called though no socket is ready.
  [[nodiscard]] milliseconds next_time(milliseconds now) const;
  // Accepts, answers and sends what can be done without waiting.
  void serve(milliseconds now);
  // Ends the answer as it is, and all else: the updater sees the end of its download.
  void close();

  // The updater has asked for the package.
  bool connected() const { return client_ >= 0; }
  // All bytes of the package were handed to the kernel.
  bool delivered() const { return sent_ == length_ && connected(); }
  // The updater has ended the connection.
  bool lost() const { return lost_; }
  // Connections that were turned away.
  int turned_away() const { return turned_away_; }

 private:
  struct visitor {
    int fd;
    milliseconds since;
    std::string head;
  };
  void accept_visitors(milliseconds now);
  void hear_visitors(milliseconds now);
  void welcome(int fd, milliseconds now);
  void turn_away(int fd);
  bool is_ours(int fd) const;
  void send_bytes(milliseconds now);
  void watch_client();

  uint64_t length_ = 0, sent_ = 0;
  std::string path_, url_;
  int listener_ = -1, client_ = -1;
  std::vector<visitor> visitors_;  // connected, and have not asked for anything yet
  std::unique_ptr<hold> hold_ = std::make_unique<hold>();
  bool lost_ = false;
  int turned_away_ = 0;
};

}  // namespace fetch

#endif
