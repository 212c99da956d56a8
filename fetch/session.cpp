#include "fetch/session.h"

#include <sys/random.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "fetch/exit_status.h"
#include "fetch/files.h"

namespace fetch {

namespace {

constexpr milliseconds kLongAway = 3'600'000;
constexpr milliseconds kConnectLimit = 60'000;  // for the updater, to ask for the package

milliseconds now_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<milliseconds>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

// Good enough to spread waits: without entropy the clock has to do.
uint32_t random_number() {
  uint32_t number = 0;
  if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
    number = static_cast<uint32_t>(now_ms());
  return number;
}

std::string in_seconds(milliseconds time) {
  const milliseconds tenths = (time + 50) / 100;
  return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + " s";
}

// "at byte 5 of 10"
std::string place_of(const job& work) {
  std::string text = "at byte " + std::to_string(work.position());
  if (work.length()) text += " of " + std::to_string(*work.length());
  return text;
}

}  // namespace

session::~session() {
  if (signals_ >= 0) close(signals_);
}

int session::refuse(const std::string& why) {
  news_.tell("refused", why);
  return kRefused;
}

int session::run() {
  int status = prepare();
  if (status == 0 && given_.spread_seconds > 0) status = wait_for_own_moment();
  if (status == 0) patience_ = std::make_unique<patience>(now_ms(), given_.give_up_seconds * 1000);
  if (status == 0 && !given_.is_unsigned) status = learn_digests();
  if (status == 0) status = fetch_package();
  return status;
}

// Signals that the starter ignores stay ignored: a blocked one would be read all the same.
int session::prepare() {
  sigset_t wanted;
  sigemptyset(&wanted);
  sigaddset(&wanted, SIGCHLD);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction current = {};
    sigaction(number, nullptr, &current);
    if (current.sa_handler != SIG_IGN) sigaddset(&wanted, number);
  }
  sigprocmask(SIG_BLOCK, &wanted, &old_mask_);
  signal(SIGPIPE, SIG_IGN);
  signals_ = signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signals_ < 0) return refuse(std::string("cannot wait for signals: ") + strerror(errno));
  for (const std::string& path : given_.key_files) {
    const auto text = read_file(path, kMaxSignatureText);
    if (!text) return refuse("cannot read the key " + path + ": " + strerror(errno));
    keys_.emplace_back();
    const char* const fault = parse_public_key(*text, keys_.back());
    if (fault != nullptr) return refuse("the key " + path + " is of no use: " + fault);
  }
  // The updater may take the data volume away, wherever this was started.
  if (chdir("/") != 0) return refuse(std::string("cannot leave the working directory: ") + strerror(errno));
  const char* const fault = network_.open(given_.network);
  return fault == nullptr ? 0 : refuse(fault);
}

int session::wait_for_own_moment() {
  std::optional<std::string> id = given_.id;
  if (!id) id = read_file("/etc/machine-id", 4096);
  if (!id || id->empty()) return refuse("there is no machine id to spread by; give --id");
  const milliseconds start = now_ms() + own_moment(*id, given_.spread_seconds);
  news_.tell("waiting", "waits " + in_seconds(start - now_ms()) + " for its own moment");
  while (now_ms() < start && !is_cut_short()) wait_until(start);
  return is_cut_short() ? cut_short() : 0;
}

int session::bring_document(const std::string& place, const char* what, size_t limit, std::string& text) {
  if (!is_url(place)) {
    auto content = read_file(place, limit);
    if (!content)
      return refuse(std::string("cannot read the ") + what + ' ' + place + ": " + strerror(errno));
    text = std::move(*content);
    return 0;
  }
  document work(what, place, limit);
  const int status = fetch(work);
  text = work.text();
  return status;
}

int session::learn_digests() {
  const std::string digests = given_.digests.empty() ? beside(given_.url, ".digests") : given_.digests;
  const std::string signature = given_.signature.empty() ? beside(digests, ".minisig") : given_.signature;
  std::string text, signature_text;
  // The small one first: without it the other is of no use.
  int status = bring_document(signature, "signature", kMaxSignatureText, signature_text);
  if (status == 0) status = bring_document(digests, "digests", kMaxDigestsText, text);
  return status == 0 ? prove_digests(text, signature_text) : status;
}

int session::prove_digests(const std::string& text, const std::string& signature_text) {
  signature given;
  const char* fault = parse_signature(signature_text, given);
  if (fault == nullptr) fault = prove_signature(given, text, keys_);
  if (fault != nullptr) return refuse(std::string("the signature of the digests is of no use: ") + fault);
  fault = parse_digests(text, digests_);
  if (fault != nullptr) return refuse(std::string("the digests are of no use: ") + fault);
  news_.tell("signed", "signed: " + given.trusted_comment, {{"length", digests_.length}});
  return 0;
}

int session::fetch_package() {
  package_ = std::make_unique<package_download>(given_.url, given_.is_unsigned ? nullptr : &digests_);
  if (given_.check) package_->set_outlet([](std::string_view bytes) { return bytes.size(); });
  const int status = fetch(*package_);
  if (status != 0) return end_early(status);
  if (!given_.check) return deliver();
  news_.tell("proven", "proven: all " + std::to_string(digests_.length) + " bytes");
  return kDone;
}

// Asks as often as it takes. One exchange ends, and another begins after a wait, until the job is complete or
// there is no point in going on.
int session::fetch(job& work) {
  next_try_ = now_ms();
  last_position_ = work.position();
  while (!work.complete()) {
    const milliseconds now = now_ms();
    if (network_.idle() && now >= next_try_) network_.start(work.url(), work.next_request(), work, now);
    milliseconds until = patience_->deadline();
    if (network_.busy()) until = std::min(until, network_.silence_deadline());
    if (network_.idle()) until = std::min(until, next_try_);
    wait_until(until);
    const int status = make_progress(work, now_ms());
    if (status != 0) return status;
    if (is_cut_short()) return cut_short();
  }
  network_.stop();
  return 0;
}

int session::make_progress(job& work, milliseconds now) {
  // First the room that the updater has made, so that a paused exchange goes on at once.
  if (package_) package_->pump();
  network_.turn(now);
  int status = 0;
  if (package_ && package_->has_ready() && !updater_.started()) status = start_updater();
  if (status == 0 && work.has_verdict() && network_.busy()) {
    network_.stop();
    status = end_exchange(work, {}, now);
  } else if (status == 0 && (work.has_room() || work.has_verdict())) {
    // Not before: what came last may still be proven when the updater has made room for what came before.
    if (const auto end = network_.take_end()) status = end_exchange(work, *end, now);
  }
  if (status != 0) return status;
  // A wait for the updater, which writes to flash, is no outage.
  if (work.position() > last_position_) patience_->recovered();
  if (work.position() > last_position_ || !work.has_room()) patience_->progressed(now);
  last_position_ = work.position();
  if (now < patience_->deadline() || work.complete()) return 0;
  news_.tell("gave up",
             "gives up on the " + work.what() + ' ' + place_of(work) + ": nothing new for " +
                 std::to_string(given_.give_up_seconds) + " s",
             {{"position", work.position()}});
  return kGaveUp;
}

int session::end_exchange(job& work, const exchange_end& end, milliseconds now) {
  const milliseconds least = retry_after_seconds(network_.given()) * 1000;
  const judgement found = work.judge_end(end);
  if (work.complete()) return 0;
  const std::string what = work.what() + ' ' + public_url(work.url()) + ": ";
  if (found.what == verdict::refused) return refuse(what + found.why);
  next_try_ = now;
  if (found.what == verdict::at_once) return 0;
  const milliseconds wait = patience_->wait_after_break(random_number(), least);
  next_try_ += wait;
  news_.tell("broke", what + place_of(work) + ": " + found.why + "; goes on in " + in_seconds(wait),
             {{"position", work.position()}, {"wait_ms", static_cast<uint64_t>(wait)}});
  return 0;
}

// The package's own address has secrets in it, and the updater's log is for everyone: it gets another one.
int session::start_updater() {
  if (feeder_.open(*package_->length()) != 0) {
    news_.tell("no updater", std::string("cannot listen for the updater: ") + strerror(errno));
    return kUpdaterLost;
  }
  if (updater_.start(given_.updater, feeder_.url(), given_.updater_options, old_mask_, given_.json) != 0) {
    news_.tell("no updater", "cannot start the updater " + given_.updater + ": " + strerror(errno));
    return kUpdaterLost;
  }
  asked_since_ = now_ms();
  package_->set_outlet([this](std::string_view bytes) { return feeder_.push(bytes); });
  news_.tell("started", "started " + given_.updater, {{"pid", static_cast<uint64_t>(updater_.pid())}});
  return 0;
}

int session::deliver() {
  while (!feeder_.delivered()) {
    package_->pump();
    if (!package_->has_ready()) feeder_.finish();
    if (is_cut_short()) return cut_short();
    wait_until(now_ms() + kLongAway);
  }
  news_.tell("delivered", "the updater has the whole package", {{"length", *package_->length()}});
  return wait_for_updater();
}

int session::cut_short() {
  if (signal_ != 0) {
    news_.tell("interrupted", std::string("interrupted: ") + strsignal(signal_));
    return end_early(kSignalled + signal_);
  }
  // Closed by the updater before it had all: its own exit status tells why.
  return wait_for_updater();
}

int session::end_early(int status) {
  network_.stop();
  feeder_.close();
  if (!updater_.running()) return status;
  // It sees the end of its download, and fails by itself. To kill it could leave flash worse.
  news_.tell("stopping", "waits for the updater to end");
  (void)!wait_for_updater();
  return status;
}

int session::wait_for_updater() {
  network_.stop();
  while (updater_.running()) wait_until(now_ms() + kLongAway);
  return updater_status();
}

int session::updater_status() const {
  const updater_end end = updater_.end().value_or(updater_end{});
  const bool known = end.number == 0 || end.number == 1 || (end.number >= 253 && end.number <= 255);
  if (!end.by_signal && known && (end.number != 0 || feeder_.delivered())) return end.number;
  const std::string how = end.by_signal ? "was killed by signal " : "ended with status ";
  const char* const when = feeder_.delivered() ? "" : " before it had the whole package";
  news_.tell("updater lost", "the updater " + how + std::to_string(end.number) + when);
  return kUpdaterLost;
}

void session::wait_until(milliseconds until) {
  const milliseconds now = now_ms();
  std::vector<curl_waitfd> sockets = {{signals_, CURL_WAIT_POLLIN, 0}};
  feeder_.add_sockets(sockets, now);
  network_.wait(sockets, std::min(until, feeder_.next_time(now)) - now);
  take_signals();
  feeder_.serve(now_ms());
  const bool must_ask = updater_.running() && !feeder_.connected() && asked_since_ != 0;
  if (!must_ask || now_ms() < asked_since_ + kConnectLimit) return;
  news_.tell("no updater", "the updater does not ask for the package; it is ended");
  updater_.terminate();
  asked_since_ = 0;
}

void session::take_signals() {
  signalfd_siginfo found = {};
  while (read(signals_, &found, sizeof found) == sizeof found) {
    const auto number = static_cast<int>(found.ssi_signo);
    if (number != SIGCHLD) signal_ = number;
  }
  updater_.look();
}

}  // namespace fetch
