#include "tools/tarv-watch/run_state.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace {

using std::chrono::duration;
using std::chrono::seconds;

constexpr seconds kRateWindow{8};
constexpr double kRateMinimum = 0.5;  // seconds: below, the rate is chance
constexpr seconds kSettling{1};       // between the first word of success and the last file

// The watch's own status for one that the updater publishes.
constexpr run_status watched(int status) {
  return static_cast<run_status>(status + static_cast<int>(run_status::idle));
}
static_assert(watched(TARV_STATUS_IDLE) == run_status::idle &&
                  watched(static_cast<int>(kStatusLines.size()) - 1) == run_status::failed,
              "run_status has the updater's statuses in their order, from idle to failed");

std::vector<run_status> statuses_in(std::string_view history) {
  std::vector<run_status> found;
  while (!history.empty()) {
    const std::string_view line = history.substr(0, history.find('\n') + 1);
    for (size_t i = 0; i < kStatusLines.size(); ++i) {
      if (kStatusLines[i] == line) found.push_back(watched(static_cast<int>(i)));
    }
    history.remove_prefix(line.size());
  }
  return found;
}

// A file's number can be that of a removed one, and not every file system tells when a file was born.
bool same_run(const run_look& before, const run_look& now) {
  const size_t old = before.history.size();
  return now.identity == before.identity && now.history.compare(0, old, before.history) == 0 &&
         now.history.find(kStatusLines[TARV_STATUS_IDLE], old) == std::string::npos;
}

void keep(known_number& known, const known_number& seen) {
  if (seen) known = seen;
}

}  // namespace

bool same_news(const run_state& a, const run_state& b) {
  return a.run == b.run && a.status == b.status && a.file_size == b.file_size &&
         a.download_size == b.download_size && a.times == b.times && a.fail_reason == b.fail_reason;
}

bool is_final(run_status status) {
  return status >= run_status::restore;
}

int percent_of(const run_state& state) {
  const bool verified = state.status >= run_status::install && state.status <= run_status::success;
  if (verified) return 100;
  if (!state.file_size || *state.file_size == 0 || !state.download_size) return -1;
  return std::min(99, static_cast<int>(int64_t{100} * *state.download_size / *state.file_size));
}

int exit_status_of(const run_state& state) {
  if (state.status == run_status::restore || state.status == run_status::success) return 0;
  if (state.status == run_status::gone) return 21;
  if (state.status != run_status::failed) return 20;
  if (state.stage == run_status::check) return 11;
  return state.stage == run_status::install ? 12 : 10;
}

void run_tracker::begin(const run_look& look) {
  const int run = state_.run;
  state_ = {};
  state_.run = run;
  samples_.clear();
  finals_ = 0;
  ignored_ = only_new_ && !look.history.empty();
  if (!look.history.empty() && !ignored_) ++state_.run;
}

void run_tracker::take_status(run_status status, watch_clock::time_point now) {
  state_.status = status;
  state_.stage_seconds = state_.rate = 0;
  state_.seconds_left = -1;
  if (!is_final(status)) state_.stage = status;
  if (is_final(status) && finals_++ == 0) final_seen_ = now;
}

void run_tracker::take_numbers(const run_look& look) {
  keep(state_.file_size, look.file_size);
  keep(state_.download_size, look.download_size);
  if (state_.file_size && state_.download_size) {
    state_.download_size = std::min(*state_.download_size, *state_.file_size);
  }
  for (size_t i = 0; i < kTimes; ++i) keep(state_.times[i], look.times[i]);
  if (!look.fail_reason.empty()) state_.fail_reason = look.fail_reason;
}

void run_tracker::measure_rate(watch_clock::time_point now) {
  state_.rate = 0;
  state_.seconds_left = -1;
  if (state_.status != run_status::download || !state_.download_size) return;
  samples_.push_back({now, *state_.download_size});
  while (now - samples_.front().time > kRateWindow) samples_.pop_front();
  const double span = duration<double>(now - samples_.front().time).count();
  const int32_t gained = samples_.back().bytes - samples_.front().bytes;
  if (span < kRateMinimum || gained <= 0) return;
  state_.rate = gained / span;
  if (!state_.file_size) return;
  state_.seconds_left = std::lround(std::ceil((*state_.file_size - *state_.download_size) / state_.rate));
}

std::vector<run_state> run_tracker::take(const run_look& look, watch_clock::time_point now) {
  if (last_.history.empty() || !same_run(last_, look)) {
    begin(look);
    last_.history.clear();
  }
  only_new_ = false;
  const std::string news = look.history.substr(last_.history.size());
  last_ = look;
  if (ignored_) return {state_};

  std::vector<run_state> states;
  take_numbers(look);
  for (const run_status status : statuses_in(news)) {
    take_status(status, now);
    stage_began_ = now - std::chrono::duration_cast<watch_clock::duration>(duration<double>(look.status_age));
    states.push_back(state_);
  }
  measure_rate(now);
  if (state_.run > 0) state_.stage_seconds = duration<double>(now - stage_began_).count();
  if (states.empty()) return {state_};
  states.back() = state_;
  return states;
}

bool run_tracker::is_settled(watch_clock::time_point now) const {
  if (!is_final(state_.status)) return false;
  return state_.status == run_status::failed || finals_ > 1 || now - final_seen_ >= kSettling;
}
