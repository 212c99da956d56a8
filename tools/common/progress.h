// The progress of long work: one line on standard error, for people at a terminal.
#ifndef TARVOLIN_TOOLS_COMMON_PROGRESS_H
#define TARVOLIN_TOOLS_COMMON_PROGRESS_H

#include <chrono>
#include <cstdint>

namespace tools {

// Silent unless standard error is a terminal, and in the first second. The line disappears with the object.
class progress {
 public:
  // `work` is what has been done to the bytes, in a word; it must outlive the object.
  progress(const char* work, uint64_t total_bytes);
  progress(const progress&) = delete;
  progress& operator=(const progress&) = delete;
  ~progress();

  void add(uint64_t bytes);

 private:
  const char* work_;
  uint64_t total_, done_ = 0;
  std::chrono::steady_clock::time_point next_;  // when to draw again
  bool silent_;
  int columns_ = 0;  // of the line that stands there
};

}  // namespace tools

#endif
