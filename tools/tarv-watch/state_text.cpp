#include "tools/tarv-watch/state_text.h"

#include <cinttypes>
#include <cstdio>
#include <iterator>

#include "tools/common/printable.h"

namespace tools::tarv_watch {

namespace {

struct unit {
  const char* name;
  double bytes;
};

// The unit in which numbers up to `bytes` are said.
unit unit_for(double bytes) {
  constexpr double kib = 1024, mib = kib * 1024;
  return bytes >= mib ? unit{"MiB", mib} : unit{"KiB", kib};
}

std::string decimal(double value) {
  char text[32];
  snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string size_text(double bytes) {
  const unit in = unit_for(bytes);
  return decimal(bytes / in.bytes) + " " + in.name;
}

std::string clock_text(int64_t seconds) {
  char text[64];
  if (seconds < 3600) {
    snprintf(text, sizeof text, "%" PRId64 ":%02" PRId64, seconds / 60, seconds % 60);
  } else {
    snprintf(text, sizeof text, "%" PRId64 ":%02" PRId64 ":%02" PRId64, seconds / 3600, seconds / 60 % 60,
             seconds % 60);
  }
  return text;
}

// The stage's number among the time files.
size_t time_index(run_status stage) {
  return static_cast<size_t>(stage) - static_cast<size_t>(run_status::download);
}

// What can be said of a number: a clock that was set makes times negative, a size of 2 GiB and more is.
bool is_sayable(const known_number& number) {
  return number && *number >= 0;
}

std::string in_total(const run_state& state) {
  const known_number total = state.times[kTimes - 1];
  return is_sayable(total) ? " in " + std::to_string(*total) + " s" : "";
}

std::string ending_text(const run_state& state) {
  switch (state.status) {
    case run_status::success:
      return "success" + in_total(state);
    case run_status::restore:
      return "restore pending" + in_total(state) +
             ": the images wait in the store for the software that restores";
    case run_status::failed:
      return std::string("failed in the ") + name_of(state.stage) + " stage: " +
             (state.fail_reason.empty() ? "no reason given, see tarv_log" : printable(state.fail_reason));
    case run_status::gone:
      return std::string("gone: the updater has ended in the ") + name_of(state.stage) +
             " stage without an outcome";
    default:
      return "no run has begun";
  }
}

}  // namespace

const char* name_of(run_status status) {
  constexpr const char* names[] = {"waiting", "idle",    "download", "check", "install",
                                   "restore", "success", "failed",   "gone"};
  static_assert(std::size(names) == static_cast<size_t>(run_status::gone) + 1, "a name for each");
  return names[static_cast<size_t>(status)];
}

std::string progress_in_bytes(const run_state& state) {
  if (!is_sayable(state.file_size)) return "";
  const unit in = unit_for(*state.file_size);
  const std::string here = is_sayable(state.download_size) ? decimal(*state.download_size / in.bytes) : "?";
  return here + "/" + decimal(*state.file_size / in.bytes) + " " + in.name;
}

std::string rate_text(const run_state& state) {
  return state.rate > 0 ? size_text(state.rate) + "/s" : "";
}

std::string time_left_text(const run_state& state) {
  return state.seconds_left >= 0 ? clock_text(state.seconds_left) + " left" : "";
}

std::string finished_text(const run_state& before, const run_state& now, size_t columns) {
  const bool in_stage = before.status >= run_status::download && before.status <= run_status::install;
  const bool finished =
      now.run == before.run && now.status > before.status && now.status < run_status::failed;
  if (!in_stage || !finished) return "";
  std::string text = name_of(before.status);
  text.resize(10, ' ');
  const known_number& time = now.times[time_index(before.status)];
  const std::string seconds = is_sayable(time) ? std::to_string(*time) + " s" : "";
  if (before.status == run_status::download && is_sayable(now.download_size)) {
    std::string whole = text + size_text(*now.download_size) + (seconds.empty() ? "" : " in " + seconds);
    if (whole.size() <= columns) return whole;
  }
  return text + (seconds.empty() ? "done" : seconds);
}

std::string outcome_text(const run_state& state) {
  const std::string ending = ending_text(state);
  return state.contradiction.empty() ? ending : ending + " (" + state.contradiction + ")";
}

}  // namespace tools::tarv_watch
