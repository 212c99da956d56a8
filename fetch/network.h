// One exchange at a time with servers, through libcurl. It never blocks: network::wait() is the program's one
// place to sleep.
#ifndef TARVOLIN_FETCH_NETWORK_H
#define TARVOLIN_FETCH_NETWORK_H

#include <curl/curl.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fetch/answer.h"
#include "fetch/course.h"
#include "fetch/patience.h"

namespace fetch {

// What all exchanges have in common. The texts are files' contents, in PEM: no file is opened later on.
struct network_settings {
  std::string authorities;  // empty: libcurl's own
  std::string certificate, key;
  std::string proxy;           // empty: as the environment says
  int64_t bytes_a_second = 0;  // 0: no limit
};

// Who takes an answer.
class receiver {
 public:
  receiver() = default;
  receiver(const receiver&) = delete;
  receiver& operator=(const receiver&) = delete;
  virtual ~receiver() = default;
  // The header is complete. False ends the exchange.
  virtual bool take_header(const answer& given) = 0;
  // The next bytes of the body, at most kLargestPiece. False ends the exchange.
  virtual bool take_body(std::string_view piece) = 0;
  // Whether it takes the next piece now.
  [[nodiscard]] virtual bool has_room() const = 0;
};

// How an exchange ended.
struct exchange_end {
  CURLcode code = CURLE_OK;
  std::string why;  // libcurl's words, or ours
};

class network {
 public:
  network() = default;
  network(const network&) = delete;
  network& operator=(const network&) = delete;
  ~network();

  // Makes ready. `settings` have to outlive this. Returns nullptr, or what is wrong.
  [[nodiscard]] const char* open(const network_settings& settings);
  // Begins an exchange. `to` has to live until it is over or stopped.
  void start(const std::string& url, const request& wanted, receiver& to, milliseconds now);
  // Ends it without a word.
  void stop();
  bool busy() const { return busy_; }
  // Nothing is under way, and no end waits to be taken.
  bool idle() const { return !busy_ && !end_; }

  // Sleeps until something happens on the network or on `others`, or for `timeout`; then does what is to be
  // done.
  void wait(std::vector<curl_waitfd>& others, milliseconds timeout);
  // Gives a receiver that had no room the rest, once it has; and looks at the time.
  void turn(milliseconds now);
  // The end of the exchange, told once.
  [[nodiscard]] std::optional<exchange_end> take_end();
  // When silence becomes a break; only while busy.
  [[nodiscard]] milliseconds silence_deadline() const { return last_byte_ + kSilenceLimit; }
  // The answer as far as it has come.
  const answer& given() const { return answer_; }

 private:
  static size_t on_header(char* data, size_t size, size_t count, void* self);
  static size_t on_body(char* data, size_t size, size_t count, void* self);
  static int on_request(void* self, char*, char*, int, int);
  void set_transfer(const std::string& url);
  void set_headers(const request& wanted);
  void set_trust();
  void collect_end();
  void end_with(CURLcode code, std::string why);

  const network_settings* settings_ = nullptr;
  CURLM* multi_ = nullptr;
  CURL* easy_ = nullptr;
  curl_slist* headers_ = nullptr;
  char error_[CURL_ERROR_SIZE] = "";
  receiver* receiver_ = nullptr;
  answer answer_;
  bool busy_ = false, paused_ = false, header_told_ = false, was_secure_ = false;
  bool anew_ = false;  // the last exchange did not end well: its connection may be dead
  milliseconds last_byte_ = 0;
  bool byte_came_ = false;
  std::optional<exchange_end> end_;
};

// Whether asking again cannot make this error better: certificates, URLs, protocols.
[[nodiscard]] bool is_hopeless(CURLcode code);

// A URL for people and logs: without user, password and query.
[[nodiscard]] std::string public_url(const std::string& url);

}  // namespace fetch

#endif
