// Proven bytes on their way to the updater, and the rule that keeps it fed.
//
// The updater gives up after 30 s of silence, so the last bytes are held back as long as none follow: while
// the network is away they go out one by one. 64 KiB last for a week.
#ifndef TARVOLIN_FETCH_HOLD_H
#define TARVOLIN_FETCH_HOLD_H

#include <array>
#include <cstddef>
#include <string_view>

#include "fetch/patience.h"

namespace fetch {

constexpr size_t kHoldSize = size_t{64} * 1024;  // bytes
constexpr milliseconds kDripInterval = 10'000;   // a third of the updater's patience

class hold {
 public:
  // Takes as many bytes as there is room for. Returns how many.
  [[nodiscard]] size_t push(std::string_view bytes);
  // So many bytes wait for room. As many go out, and no more, however large or small the pieces are.
  void want_room(size_t bytes) { wanted_ = bytes; }
  // No more bytes follow: nothing is held back.
  void finish() { last_ = true; }

  // The bytes that may go out now: the next ones in one piece, or a single one when it is time for a drop.
  [[nodiscard]] std::string_view sendable(milliseconds now) const;
  // `count` bytes of sendable() went out.
  void sent(size_t count, milliseconds now);
  // The updater was given something else, as late as `now`.
  void restart_clock(milliseconds now) { last_sent_ = now; }
  // When a drop is due, if nothing else goes out before.
  [[nodiscard]] milliseconds next_drop() const { return last_sent_ + kDripInterval; }

  bool empty() const { return count_ == 0; }

 private:
  std::array<char, kHoldSize> ring_;
  size_t first_ = 0, count_ = 0;
  milliseconds last_sent_ = 0;
  size_t wanted_ = 0;
  bool last_ = false;
};

}  // namespace fetch

#endif
