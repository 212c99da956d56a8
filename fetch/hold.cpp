#include "fetch/hold.h"

#include <algorithm>
#include <cstring>

namespace fetch {

size_t hold::push(std::string_view bytes) {
  size_t taken = 0;
  while (taken < bytes.size() && count_ < kHoldSize) {
    const size_t at = (first_ + count_) % kHoldSize;
    const size_t room = std::min(kHoldSize - at, kHoldSize - count_);
    const size_t piece = std::min(room, bytes.size() - taken);
    memcpy(&ring_[at], bytes.data() + taken, piece);
    count_ += piece;
    taken += piece;
  }
  return taken;
}

std::string_view hold::sendable(milliseconds now) const {
  const size_t piece = std::min(count_, kHoldSize - first_);
  const size_t room = kHoldSize - count_;
  const size_t drop = now >= next_drop() ? 1 : 0;
  const size_t due = last_ ? count_ : std::max(drop, wanted_ - std::min(wanted_, room));
  return {&ring_[first_], std::min(piece, due)};
}

void hold::sent(size_t count, milliseconds now) {
  first_ = (first_ + count) % kHoldSize;
  count_ -= count;
  last_sent_ = now;
}

}  // namespace fetch
