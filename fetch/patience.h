// How long a download waits after a break, and when it gives up. Pure: clock and randomness are passed in.
#ifndef TARVOLIN_FETCH_PATIENCE_H
#define TARVOLIN_FETCH_PATIENCE_H

#include <cstdint>

namespace fetch {

using milliseconds = int64_t;  // of a clock that only goes forwards, or between two of its times

constexpr milliseconds kSilenceLimit = 20'000;  // a connection without a byte for that long is broken
constexpr milliseconds kFirstWait = 1'000;
constexpr milliseconds kLongestWait = 300'000;  // before the random third

class patience {
 public:
  // `give_up` is how long it lasts without progress, from `now` on.
  patience(milliseconds now, milliseconds give_up) : give_up_(give_up), last_progress_(now) {}

  // A new byte was proven, or the wait was not the network's fault.
  void progressed(milliseconds now) { last_progress_ = now; }
  // A whole chunk was proven: the next wait is the first one again.
  void recovered() { next_wait_ = kFirstWait; }
  // A break. Returns how long to wait: 1, 2, 4 ... 300 s, plus or minus a third by `random` (any value), and
  // not less than the server has asked for.
  [[nodiscard]] milliseconds wait_after_break(uint32_t random, milliseconds least);
  // When it ends.
  [[nodiscard]] milliseconds deadline() const { return last_progress_ + give_up_; }

 private:
  milliseconds give_up_;
  milliseconds last_progress_;
  milliseconds next_wait_ = kFirstWait;
};

}  // namespace fetch

#endif
