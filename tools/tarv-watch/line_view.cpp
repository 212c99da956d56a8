#include <cstdint>
#include <cstdio>

#include "tools/common/refusal.h"
#include "tools/tarv-watch/state_text.h"
#include "tools/tarv-watch/view.h"

namespace tools::tarv_watch {

namespace {

constexpr int kStep = 10;  // percent from one line of a download to the next

std::string joined(const run_state& state) {
  std::string text = name_of(state.status);
  if (state.status != run_status::download) return text;
  const int percent = percent_of(state);
  if (percent >= 0) text += ", " + std::to_string(percent) + " %";
  for (const std::string& part : {progress_in_bytes(state), rate_text(state), time_left_text(state)}) {
    if (!part.empty()) text += ", " + part;
  }
  return text;
}

class line_view : public run_view {
 public:
  void show(const run_state& state) override {
    if (shown_ && !is_change(state)) return;
    const std::string finished = finished_text(last_, state, SIZE_MAX);
    if (!finished.empty()) write_now(finished + "\n");
    if (!is_final(state.status)) write_now(joined(state) + "\n");
    shown_ = true;
    last_ = state;
  }

  void finish(const run_state& state) override { write_now(outcome_text(state) + "\n"); }

 private:
  bool is_change(const run_state& state) const {
    if (state.run != last_.run || state.status != last_.status) return true;
    return state.status == run_status::download && percent_of(state) / kStep != percent_of(last_) / kStep;
  }

  bool shown_ = false;
  run_state last_;
};

}  // namespace

std::unique_ptr<run_view> make_line_view() {
  return std::make_unique<line_view>();
}

void write_now(std::string_view text) {
  const bool written = fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0;
  if (!written) throw system_refusal("cannot write to standard output");
}

}  // namespace tools::tarv_watch
