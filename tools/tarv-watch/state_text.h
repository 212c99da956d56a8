// A run's state in words, for people.
#ifndef TARVOLIN_TOOLS_TARV_WATCH_STATE_TEXT_H
#define TARVOLIN_TOOLS_TARV_WATCH_STATE_TEXT_H

#include <string>

#include "tools/tarv-watch/run_state.h"

namespace tools::tarv_watch {

[[nodiscard]] const char* name_of(run_status status);

// "5.1/12.0 MiB", or "?/12.0 MiB" as long as nothing has come; empty when the length is not known.
[[nodiscard]] std::string progress_in_bytes(const run_state& state);

// "2.4 MiB/s"; empty when not known.
[[nodiscard]] std::string rate_text(const run_state& state);

// "0:03 left"; empty when not known.
[[nodiscard]] std::string time_left_text(const run_state& state);

// What is to be said when one state follows another and a stage was finished: "download  12.0 MiB in 5 s".
// Empty when none was. What does not fit into `columns` is left out.
[[nodiscard]] std::string finished_text(const run_state& before, const run_state& now, size_t columns);

// How it has ended, in one sentence without control characters, and what its files contradict each other in.
[[nodiscard]] std::string outcome_text(const run_state& state);

}  // namespace tools::tarv_watch

#endif
