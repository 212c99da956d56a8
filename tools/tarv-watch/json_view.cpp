#include "tools/common/printable.h"
#include "tools/tarv-watch/state_text.h"
#include "tools/tarv-watch/view.h"

namespace tools::tarv_watch {

namespace {

std::string number_or_null(const known_number& number) {
  return number ? std::to_string(*number) : "null";
}

std::string positive_or_null(int64_t number, bool known) {
  return known ? std::to_string(number) : "null";
}

std::string object(const run_state& state, const std::string& exit_status) {
  const int percent = percent_of(state);
  std::string text = "{\"run\": " + std::to_string(state.run) + ", \"status\": \"" + name_of(state.status) +
                     "\", \"stage\": \"" + name_of(state.stage) +
                     "\", \"percent\": " + positive_or_null(percent, percent >= 0) +
                     ", \"file_size\": " + number_or_null(state.file_size) +
                     ", \"download_size\": " + number_or_null(state.download_size) +
                     ", \"rate\": " + positive_or_null(static_cast<int64_t>(state.rate), state.rate > 0) +
                     ", \"seconds_left\": " + positive_or_null(state.seconds_left, state.seconds_left >= 0);
  for (size_t i = 0; i < kTimes; ++i) {
    text += std::string(", \"") + tarv_run_file_name(kTimeFiles[i]) + "\": " + number_or_null(state.times[i]);
  }
  const std::string reason = state.fail_reason.empty() ? "null" : json_string(state.fail_reason);
  const std::string contradiction = state.contradiction.empty() ? "null" : json_string(state.contradiction);
  return text + ", \"fail_reason\": " + reason + ", \"contradiction\": " + contradiction +
         ", \"exit_status\": " + exit_status + "}\n";
}

class json_view : public run_view {
 public:
  void show(const run_state& state) override {
    // The object of a final status is that of finish().
    if (is_final(state.status) || (shown_ && same_news(state, last_))) return;
    write_now(object(state, "null"));
    shown_ = true;
    last_ = state;
  }

  void finish(const run_state& state) override {
    write_now(object(state, std::to_string(exit_status_of(state))));
  }

 private:
  bool shown_ = false;
  run_state last_;
};

}  // namespace

std::unique_ptr<run_view> make_json_view() {
  return std::make_unique<json_view>();
}

}  // namespace tools::tarv_watch
