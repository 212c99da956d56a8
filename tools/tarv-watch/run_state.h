// What is known about a run, put together from one look after another.
#ifndef TARVOLIN_TOOLS_TARV_WATCH_RUN_STATE_H
#define TARVOLIN_TOOLS_TARV_WATCH_RUN_STATE_H

#include <chrono>
#include <deque>
#include <vector>

#include "tools/tarv-watch/run_files.h"

namespace tools::tarv_watch {

using watch_clock = std::chrono::steady_clock;

enum class run_status { waiting, idle, download, check, install, restore, success, failed, gone };

struct run_state {
  int run = 0;  // 1 for the first run that was seen
  run_status status = run_status::waiting;
  run_status stage = run_status::idle;  // the last one that began: idle to install
  known_number file_size;
  known_number download_size;
  std::array<known_number, kTimes> times;
  std::string fail_reason;
  std::string contradiction;  // between "status" and "status_str", in words; empty: none
  double stage_seconds = 0;   // since the stage began
  double rate = 0;            // bytes a second over the last seconds of the download; 0: not known
  int64_t seconds_left = -1;  // in the download; -1: not known
};

// Whether nothing but time, and what follows from it, has passed between two states.
[[nodiscard]] bool same_news(const run_state& a, const run_state& b);

[[nodiscard]] bool is_final(run_status status);

// Percentage of the package that is here: 100 only when it has been verified, -1 when not known.
[[nodiscard]] int percent_of(const run_state& state);

// What the watch's exit status says about this state.
[[nodiscard]] int exit_status_of(const run_state& state);

class run_tracker {
 public:
  // With `only_new` the run that the first look finds counts as none.
  explicit run_tracker(bool only_new) : only_new_(only_new) {}

  // Takes in a look. Returns the states since the last one: one for each status that was published meanwhile,
  // at least one. Of a run that the first look finds, it returns only the last state.
  [[nodiscard]] std::vector<run_state> take(const run_look& look, watch_clock::time_point now);

  // True once the run is over and all its files are written, or could be.
  [[nodiscard]] bool is_settled(watch_clock::time_point now) const;

 private:
  void begin(const run_look& look);
  [[nodiscard]] std::vector<run_status> news_in(const run_look& look, bool same);
  void take_status(run_status status, watch_clock::time_point now);
  void take_numbers(const run_look& look);
  void measure_rate(watch_clock::time_point now);

  struct sample {
    watch_clock::time_point time;
    int32_t bytes;
  };

  bool only_new_;
  bool first_ = true;     // no look was taken in yet
  bool ignored_ = false;  // the run that is there is not for us
  run_look last_;
  run_state state_;
  int finals_ = 0;  // final statuses published
  watch_clock::time_point stage_began_;
  watch_clock::time_point final_seen_;
  std::deque<sample> samples_;
};

}  // namespace tools::tarv_watch

#endif
