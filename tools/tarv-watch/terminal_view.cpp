#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tools/tarv-watch/state_text.h"
#include "tools/tarv-watch/view.h"

namespace tools::tarv_watch {

namespace {

constexpr size_t kColumnsMin = 2, kColumnsMax = 200, kColumnsUsual = 80;
constexpr size_t kBarMin = 8;  // columns, brackets included
constexpr char kRedraw[] = "\r\033[K";
constexpr char kCyan[] = "\033[36m", kGreen[] = "\033[32m", kRed[] = "\033[31m";

// Columns that a line may fill; the last one stays free, or some terminals begin a new line.
size_t usable_columns() {
  struct winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kColumnsUsual - 1;
  return std::clamp<size_t>(size.ws_col, kColumnsMin, kColumnsMax) - 1;
}

class terminal_view : public run_view {
 public:
  explicit terminal_view(bool in_colour) : in_colour_(in_colour) {}

  void show(const run_state& state) override {
    if (state.run != last_.run || state.status != last_.status)
      end_line(finished_text(last_, state, usable_columns()));
    last_ = state;
    if (!is_final(state.status)) redraw(live_line(state));
  }

  void leave() override { end_line(""); }

  void finish(const run_state& state) override {
    leave();
    const char* colour = exit_status_of(state) == 0 ? kGreen : kRed;
    write_now(painted(colour, outcome_text(state)) + "\n");
  }

 private:
  std::string painted(const char* colour, const std::string& text) const {
    return in_colour_ ? colour + text + "\033[0m" : text;
  }

  void redraw(const std::string& line) {
    if (line == line_) return;
    write_now(kRedraw + line);
    line_ = line;
  }

  // Leaves the line as it is, as that of a failed stage, or with `text` in its place, and goes on below.
  void end_line(const std::string& text) {
    if (!text.empty()) redraw(text);
    if (!line_.empty()) write_now("\n");
    line_.clear();
  }

  std::string live_line(const run_state& state) const {
    if (state.status == run_status::download) return download_line(state);
    if (state.status == run_status::waiting) return cut("", "waiting for a run");
    std::string name = name_of(state.status);
    name.resize(10, ' ');
    return cut(name, std::to_string(static_cast<int64_t>(state.stage_seconds)) + " s");
  }

  // The stage's name and what follows it, as far as there is room.
  std::string cut(const std::string& name, const std::string& rest) const {
    const size_t columns = usable_columns(), left = columns - std::min(name.size(), columns);
    return painted(kCyan, name.substr(0, columns)) + rest.substr(0, left);
  }

  // A bar, shorter than a third of the columns, then what there is room for, in the order of its worth.
  // Without room for a bar the percentage alone.
  std::string download_line(const run_state& state) const {
    const int percent = percent_of(state);
    if (percent < 0) return cut("download  ", "no data yet");
    const size_t columns = usable_columns(), bar = std::max(columns / 3 - 5, kBarMin);
    char text[16];
    snprintf(text, sizeof text, " %2d %%", percent);
    std::string numbers = text;
    if (9 + bar + numbers.size() > columns) return cut("download", numbers);
    for (const std::string& part : {progress_in_bytes(state), time_left_text(state), rate_text(state)}) {
      if (!part.empty() && 9 + bar + numbers.size() + 2 + part.size() <= columns) numbers += "  " + part;
    }
    return painted(kCyan, "download ") + bar_of(static_cast<size_t>(percent), bar) + numbers;
  }

  std::string bar_of(size_t percent, size_t width) const {
    const size_t inside = width - 2, full = inside * percent / 100;
    return "[" + painted(kGreen, std::string(full, '#')) + std::string(inside - full, '-') + "]";
  }

  bool in_colour_;
  std::string line_;  // what stands in the line that is redrawn
  run_state last_;
};

}  // namespace

std::unique_ptr<run_view> make_terminal_view(bool in_colour) {
  return std::make_unique<terminal_view>(in_colour);
}

}  // namespace tools::tarv_watch
