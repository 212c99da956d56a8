#include "fetch/patience.h"

#include <algorithm>

namespace fetch {

milliseconds patience::wait_after_break(uint32_t random, milliseconds least) {
  const milliseconds third = next_wait_ / 3;
  const milliseconds wait = next_wait_ - third + random % (2 * third + 1);
  next_wait_ = std::min(next_wait_ * 2, kLongestWait);
  return std::max(wait, least);
}

}  // namespace fetch
