// The watch itself: looks again and again, shows what it finds, and ends with the run.
#ifndef TARVOLIN_TOOLS_TARV_WATCH_WATCH_H
#define TARVOLIN_TOOLS_TARV_WATCH_WATCH_H

#include <optional>
#include <string>

#include "tools/tarv-watch/view.h"

namespace tools::tarv_watch {

struct watch_order {
  std::string dir;
  std::string pid_file;                // empty: nothing tells when an updater has gone
  std::optional<double> wait_seconds;  // for a run to begin; nothing: for ever
  bool only_new = false;               // leave the run alone that is there at the start
};

// Follows a run. Returns the watch's exit status, nothing when it was interrupted; throws a refusal when
// standard output cannot be written or its reader has gone, and when the run directory or the pid file is not
// what it should be or may not be read.
[[nodiscard]] std::optional<int> watch_run(const watch_order& order, run_view& shown);

}  // namespace tools::tarv_watch

#endif
