#include "tools/tarv-watch/run_state.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace tools::tarv_watch {

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

// The status that counts: the history's last word only where "status" has none.
known_number status_in(const run_look& look) {
  if (look.status) return look.status;
  const std::vector<run_status> told = statuses_in(look.history);
  if (told.empty()) return std::nullopt;
  return static_cast<int>(told.back()) - static_cast<int>(run_status::idle);
}

// A file's number can be that of a removed one, and not every file system tells when a file was born. Without
// a history, a run ends where the status goes back.
bool same_run(const run_look& before, const run_look& now) {
  if (!before.present || !now.present) return before.present == now.present;
  if (before.history.empty() && now.status && now.status < before.status) return false;
  const size_t old = before.history.size();
  return now.identity == before.identity && now.history.compare(0, old, before.history) == 0 &&
         now.history.find(kStatusLines[TARV_STATUS_IDLE], old) == std::string::npos;
}

void keep(known_number& known, const known_number& seen) {
  if (seen) known = seen;
}

std::string contradiction_in(const run_look& look) {
  const std::vector<run_status> told = statuses_in(look.history);
  if (!look.present) return "";
  if (!look.status) return "\"status\" holds no status; is there no room left for the run directory?";
  if (told.empty()) return "\"status_str\" holds no status, \"status\" holds " + std::to_string(*look.status);
  if (told.back() == watched(*look.status)) return "";
  const std::string_view line =
      kStatusLines[static_cast<size_t>(told.back()) - static_cast<size_t>(run_status::idle)];
  return "\"status\" holds " + std::to_string(*look.status) + ", but \"status_str\" ends with " +
         std::string(line.substr(0, line.size() - 1));
}

// Without a history, the times of the stages that succeeded tell which one did not.
run_status stage_by_times(const run_look& look) {
  if (look.times[1]) return run_status::install;
  return look.times[0] ? run_status::check : run_status::download;
}

// What was known when the state was news: nothing of what came after.
run_state as_it_was(run_state state) {
  const bool over = is_final(state.status);
  if (state.status < run_status::download) state.file_size = state.download_size = std::nullopt;
  for (size_t i = 0; i + 1 < kTimes; ++i) {
    const bool ran = static_cast<size_t>(state.status) > static_cast<size_t>(run_status::download) + i;
    if (!ran) state.times[i] = std::nullopt;
  }
  if (!over) state.times[kTimes - 1] = std::nullopt;
  if (!over) state.fail_reason.clear();
  state.contradiction.clear();
  return state;
}

}  // namespace

bool same_news(const run_state& a, const run_state& b) {
  return a.run == b.run && a.status == b.status && a.file_size == b.file_size &&
         a.download_size == b.download_size && a.times == b.times && a.fail_reason == b.fail_reason &&
         a.contradiction == b.contradiction;
}

bool is_final(run_status status) {
  return status >= run_status::restore;
}

int percent_of(const run_state& state) {
  const bool verified = state.status >= run_status::install && state.status <= run_status::success;
  if (verified) return 100;
  if (!state.file_size || *state.file_size <= 0 || !state.download_size || *state.download_size < 0)
    return -1;
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
  ignored_ = only_new_ && look.present;
  if (look.present && !ignored_) ++state_.run;
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
  for (size_t i = 0; i < kTimes; ++i) keep(state_.times[i], look.times[i]);
  if (!look.fail_reason.empty()) state_.fail_reason = look.fail_reason;
  state_.contradiction = contradiction_in(look);
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
  if (!state_.file_size || *state_.file_size < *state_.download_size) return;
  state_.seconds_left = std::lround(std::ceil((*state_.file_size - *state_.download_size) / state_.rate));
}

// The statuses since the last look: what the history adds, and last of all the status that counts.
std::vector<run_status> run_tracker::news_in(const run_look& look, bool same) {
  std::vector<run_status> news = statuses_in(look.history.substr(same ? last_.history.size() : 0));
  const known_number status = status_in(look);
  if (!status) return same ? news : std::vector<run_status>{run_status::idle};
  const run_status counting = watched(*status);
  const auto found = std::find(news.rbegin(), news.rend(), counting);
  if (found != news.rend()) {
    news.erase(found.base(), news.end());  // "status" is about to follow, or never will
  } else if (same && counting == state_.status) {
    news.clear();
  } else {
    // A final word that is contradicted was none.
    while (!news.empty() && is_final(news.back())) news.pop_back();
    news.push_back(counting);
  }
  return news;
}

std::vector<run_state> run_tracker::take(const run_look& look, watch_clock::time_point now) {
  const bool same = !first_ && same_run(last_, look);
  if (!same) begin(look);
  const std::vector<run_status> news = look.present ? news_in(look, same) : std::vector<run_status>{};
  const bool found = first_;
  first_ = only_new_ = false;
  last_ = look;
  if (ignored_) return {state_};

  std::vector<run_state> states;
  take_numbers(look);
  for (const run_status status : news) {
    take_status(status, now);
    if (look.history.empty() && status == run_status::failed) state_.stage = stage_by_times(look);
    stage_began_ = now - std::chrono::duration_cast<watch_clock::duration>(duration<double>(look.status_age));
    states.push_back(as_it_was(state_));
  }
  if (found && !states.empty()) states.erase(states.begin(), states.end() - 1);
  measure_rate(now);
  if (state_.run > 0) state_.stage_seconds = duration<double>(now - stage_began_).count();
  if (states.empty()) return {state_};
  states.back() = state_;
  return states;
}

bool run_tracker::is_settled(watch_clock::time_point now) const {
  if (!is_final(state_.status)) return false;
  const bool sure = state_.contradiction.empty() && (state_.status == run_status::failed || finals_ > 1);
  return sure || now - final_seen_ >= kSettling;
}

}  // namespace tools::tarv_watch
