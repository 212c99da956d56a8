// The three ways to show a run. All write to standard output and throw a refusal when they cannot.
#ifndef TARVOLIN_TOOLS_TARV_WATCH_VIEW_H
#define TARVOLIN_TOOLS_TARV_WATCH_VIEW_H

#include <memory>
#include <string_view>

#include "tools/tarv-watch/run_state.h"

namespace tools::tarv_watch {

class run_view {
 public:
  run_view() = default;
  run_view(const run_view&) = delete;
  run_view& operator=(const run_view&) = delete;
  virtual ~run_view() = default;

  // Called with every look's states.
  virtual void show(const run_state& state) = 0;
  // Called last: with the outcome, or, when the watch is interrupted, to leave a terminal in order.
  virtual void finish(const run_state& state) = 0;
  virtual void leave() {}
};

// One line that is redrawn, as wide as the terminal, at most 200 columns, and a line for each finished stage.
[[nodiscard]] std::unique_ptr<run_view> make_terminal_view(bool in_colour);
// One line for each change.
[[nodiscard]] std::unique_ptr<run_view> make_line_view();
// One JSON object a line for each change. "exit_status" is null in all but the last.
[[nodiscard]] std::unique_ptr<run_view> make_json_view();

// Writes `text` now.
void write_now(std::string_view text);

}  // namespace tools::tarv_watch

#endif
