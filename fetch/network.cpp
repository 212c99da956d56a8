#include "fetch/network.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "fetch/prover.h"

namespace fetch {

namespace {

constexpr long kMostRedirects = 10;
constexpr char kUserAgent[] = "tarv-fetch/" TARVOLIN_VERSION;

struct blob_option {
  CURLoption option;
  std::string network_settings::*text;
};
constexpr blob_option kBlobs[] = {{CURLOPT_CAINFO_BLOB, &network_settings::authorities},
                                  {CURLOPT_SSLCERT_BLOB, &network_settings::certificate},
                                  {CURLOPT_SSLKEY_BLOB, &network_settings::key}};

// With a low limit the pieces have to be small: libcurl waits between them, and that must not look like
// silence.
long piece_size(const network_settings& settings) {
  const auto largest = static_cast<int64_t>(kLargestPiece);
  if (settings.bytes_a_second == 0) return static_cast<long>(largest);
  return static_cast<long>(std::clamp<int64_t>(settings.bytes_a_second, 1024, largest));
}

}  // namespace

network::~network() {
  stop();
  curl_slist_free_all(headers_);
  curl_easy_cleanup(easy_);
  curl_multi_cleanup(multi_);
}

const char* network::open(const network_settings& settings) {
  settings_ = &settings;
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return "libcurl cannot be made ready";
  multi_ = curl_multi_init();
  easy_ = curl_easy_init();
  if (multi_ == nullptr || easy_ == nullptr) return "libcurl cannot be made ready";
  return nullptr;
}

void network::set_transfer(const std::string& url) {
  curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy_, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(easy_, CURLOPT_MAXREDIRS, kMostRedirects);
  curl_easy_setopt(easy_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
  curl_easy_setopt(easy_, CURLOPT_USERAGENT, kUserAgent);
  curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy_, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, error_);
  curl_easy_setopt(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy_, CURLOPT_BUFFERSIZE, piece_size(*settings_));
  curl_easy_setopt(easy_, CURLOPT_MAX_RECV_SPEED_LARGE, static_cast<curl_off_t>(settings_->bytes_a_second));
  curl_easy_setopt(easy_, CURLOPT_FRESH_CONNECT, anew_ ? 1L : 0L);
  if (!settings_->proxy.empty()) curl_easy_setopt(easy_, CURLOPT_PROXY, settings_->proxy.c_str());
}

void network::set_headers(const request& wanted) {
  curl_slist_free_all(headers_);
  headers_ = nullptr;
  if (!wanted.if_range.empty()) {
    headers_ = curl_slist_append(headers_, ("If-Range: " + wanted.if_range).c_str());
  }
  if (wanted.past_caches) headers_ = curl_slist_append(headers_, "Cache-Control: no-cache");
  curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_);
  if (!wanted.from) return;
  const std::string first = std::to_string(*wanted.from);
  curl_easy_setopt(easy_, CURLOPT_RANGE, (first + '-' + (wanted.one_byte ? first : "")).c_str());
}

// Verification of the server is libcurl's default, and nothing here turns it off.
void network::set_trust() {
  for (const blob_option& row : kBlobs) {
    std::string text = settings_->*row.text;
    if (text.empty()) continue;
    curl_blob blob = {text.data(), text.size(), CURL_BLOB_COPY};
    curl_easy_setopt(easy_, row.option, &blob);
  }
}

void network::start(const std::string& url, const request& wanted, receiver& to, milliseconds now) {
  stop();
  curl_easy_reset(easy_);
  set_transfer(url);
  set_headers(wanted);
  set_trust();
  curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, on_header);
  curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, on_body);
  curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy_, CURLOPT_PREREQFUNCTION, on_request);
  curl_easy_setopt(easy_, CURLOPT_PREREQDATA, this);
  receiver_ = &to;
  answer_ = {};
  error_[0] = '\0';
  paused_ = header_told_ = was_secure_ = byte_came_ = false;
  last_byte_ = now;
  end_.reset();
  busy_ = true;
  curl_multi_add_handle(multi_, easy_);
}

void network::stop() {
  if (!busy_) return;
  busy_ = false;
  anew_ = true;
  curl_multi_remove_handle(multi_, easy_);
}

// Called before each request, those of redirects included.
int network::on_request(void* self, char*, char*, int, int) {
  auto& me = *static_cast<network*>(self);
  const char* scheme = nullptr;
  curl_easy_getinfo(me.easy_, CURLINFO_EFFECTIVE_URL, &scheme);
  const bool secure = scheme != nullptr && curl_strnequal(scheme, "https:", 6) != 0;
  if (me.was_secure_ && !secure) {
    me.end_ = exchange_end{CURLE_UNSUPPORTED_PROTOCOL, "the server redirects from https to http"};
    return CURL_PREREQFUNC_ABORT;
  }
  me.was_secure_ = me.was_secure_ || secure;
  return CURL_PREREQFUNC_OK;
}

size_t network::on_header(char* data, size_t size, size_t count, void* self) {
  auto& me = *static_cast<network*>(self);
  take_header_line(me.answer_, {data, size * count});
  me.byte_came_ = true;
  if (me.answer_.header_bytes <= kMaxHeader) return size * count;
  me.end_ = exchange_end{CURLE_WRITE_ERROR, "the answer's header does not end"};
  return 0;
}

size_t network::on_body(char* data, size_t size, size_t count, void* self) {
  auto& me = *static_cast<network*>(self);
  const std::string_view piece(data, size * count);
  me.byte_came_ = true;
  if (!me.header_told_) {
    me.header_told_ = true;
    if (!me.receiver_->take_header(me.answer_)) return 0;
  }
  if (!me.receiver_->has_room()) {
    me.paused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  if (piece.size() > kLargestPiece) return 0;
  return me.receiver_->take_body(piece) ? piece.size() : 0;
}

void network::end_with(CURLcode code, std::string why) {
  stop();
  anew_ = code != CURLE_OK;
  end_ = exchange_end{code, std::move(why)};
}

void network::collect_end() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const CURLcode code = message->data.result;
    if (end_) {  // one of ours was the cause
      end_with(end_->code, end_->why);
      continue;
    }
    // An answer without a body has not been told of yet.
    if (code == CURLE_OK && !header_told_) {
      header_told_ = true;
      (void)!receiver_->take_header(answer_);
    }
    end_with(code, error_[0] != '\0' ? error_ : curl_easy_strerror(code));
  }
}

void network::wait(std::vector<curl_waitfd>& others, milliseconds timeout) {
  curl_multi_poll(multi_, others.data(), static_cast<unsigned>(others.size()),
                  static_cast<int>(std::clamp<milliseconds>(timeout, 0, 60'000)), nullptr);
}

void network::turn(milliseconds now) {
  if (!busy_) return;
  if (paused_ && receiver_->has_room()) {
    paused_ = false;
    last_byte_ = now;
    curl_easy_pause(easy_, CURLPAUSE_CONT);
  }
  int running = 0;
  curl_multi_perform(multi_, &running);
  collect_end();
  // While the receiver has no room, silence is ours.
  if (byte_came_ || paused_) last_byte_ = now;
  byte_came_ = false;
  if (busy_ && now >= silence_deadline()) end_with(CURLE_OPERATION_TIMEDOUT, "no byte for 20 s");
}

std::optional<exchange_end> network::take_end() {
  std::optional<exchange_end> end;
  if (!busy_) end_.swap(end);
  return end;
}

bool is_hopeless(CURLcode code) {
  constexpr CURLcode kHopeless[] = {CURLE_UNSUPPORTED_PROTOCOL,     CURLE_URL_MALFORMAT,
                                    CURLE_TOO_MANY_REDIRECTS,       CURLE_SSL_CERTPROBLEM,
                                    CURLE_PEER_FAILED_VERIFICATION, CURLE_SSL_CACERT_BADFILE,
                                    CURLE_SSL_ISSUER_ERROR,         CURLE_SSL_INVALIDCERTSTATUS,
                                    CURLE_SSL_PINNEDPUBKEYNOTMATCH, CURLE_NOT_BUILT_IN,
                                    CURLE_SSL_ENGINE_NOTFOUND};
  return std::find(std::begin(kHopeless), std::end(kHopeless), code) != std::end(kHopeless);
}

std::string public_url(const std::string& url) {
  const size_t scheme = url.find("://");
  const size_t host = scheme == std::string::npos ? 0 : scheme + 3;
  const size_t end = std::min(url.find_first_of("/?#", host), url.size());
  const size_t at = url.rfind('@', end);
  const size_t query = std::min(url.find_first_of("?#"), url.size());
  const size_t from = at != std::string::npos && at >= host && at < end ? at + 1 : host;
  return url.substr(0, host) + url.substr(from, query - from) + (query < url.size() ? "?..." : "");
}

}  // namespace fetch
