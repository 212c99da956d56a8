#include "tools/tarv-watch/watch.h"

#include <poll.h>
#include <unistd.h>

#include "tools/common/interruption.h"
#include "tools/common/refusal.h"

namespace tools::tarv_watch {

namespace {

constexpr int kPeriodMs = 200;
constexpr int kGoneLooks = 2;  // the first may have met the files of an old run and the updater of the next

// Waits until the next look. A reader that goes away meanwhile ends the watch, which may have nothing to
// write for long.
void pause_watch() {
  struct pollfd output = {STDOUT_FILENO, 0, 0};
  if (poll(&output, 1, kPeriodMs) > 0) throw refusal("standard output is closed");
}

refusal no_pid_file(const std::string& path) {
  return refusal(
      "a run is under way, but the pid file " + in_quotes(path) +
      " is missing or empty: nothing tells whether its updater still runs; give the right one with "
      "--pid-file");
}

int finish(run_view& shown, const run_state& state) {
  shown.finish(state);
  return exit_status_of(state);
}

}  // namespace

std::optional<int> watch_run(const watch_order& order, run_view& shown) {
  run_tracker tracker(order.only_new);
  watch_clock::time_point waiting_since = watch_clock::now();
  int gone_looks = 0;
  for (;; pause_watch()) {
    if (was_interrupted()) {
      shown.leave();
      return std::nullopt;
    }
    // Asked before the look: an updater publishes its outcome before it lets go of the lock.
    const pid_lock lock = order.pid_file.empty() ? pid_lock::held : ask_pid_lock(order.pid_file);
    const watch_clock::time_point now = watch_clock::now();
    run_state state;
    for (const run_state& next : tracker.take(look_at_run(order.dir), now)) shown.show(state = next);
    if (tracker.is_settled(now)) return finish(shown, state);

    const bool waiting = state.status == run_status::waiting;
    const bool alone = lock != pid_lock::held && !waiting && !is_final(state.status);
    gone_looks = alone ? gone_looks + 1 : 0;
    if (gone_looks >= kGoneLooks) {
      if (lock == pid_lock::missing) throw no_pid_file(order.pid_file);
      state.status = run_status::gone;
      return finish(shown, state);
    }
    if (!waiting) waiting_since = now;
    const std::chrono::duration<double> waited = now - waiting_since;
    if (waiting && order.wait_seconds && waited.count() >= *order.wait_seconds) return finish(shown, state);
  }
}

}  // namespace tools::tarv_watch
