#include "tools/common/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace tools {

using std::chrono::steady_clock;

progress::progress(const char* work, uint64_t total_bytes)
    : work_(work),
      total_(total_bytes),
      next_(steady_clock::now() + std::chrono::seconds(1)),
      silent_(isatty(STDERR_FILENO) == 0) {}

// With spaces: not every terminal knows how to clear a line.
progress::~progress() {
  if (columns_ > 0) fprintf(stderr, "\r%*s\r", columns_, "");
}

void progress::add(uint64_t bytes) {
  done_ += bytes;
  const steady_clock::time_point now = steady_clock::now();
  if (silent_ || now < next_) return;
  next_ = now + std::chrono::milliseconds(200);
  constexpr double kMib = 1024.0 * 1024.0;
  const uint64_t percent = done_ * 100 / std::max<uint64_t>(total_, 1);
  columns_ = fprintf(stderr, "\r%s %.1f of %.1f MiB, %" PRIu64 " %%", work_,
                     static_cast<double>(done_) / kMib, static_cast<double>(total_) / kMib, percent) -
             1;
}

}  // namespace tools
