// Numbers of protocols and options: decimal digits and nothing else.
#ifndef TARVOLIN_FETCH_NUMBER_H
#define TARVOLIN_FETCH_NUMBER_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace fetch {

// The value of `text`, which is digits from end to end, without a leading zero unless it is "0", and at most
// INT64_MAX, so that sums of two still fit; else nothing.
[[nodiscard]] inline std::optional<uint64_t> parse_number(std::string_view text) {
  if (text.empty() || text.size() > 19 || (text.size() > 1 && text[0] == '0')) return std::nullopt;
  uint64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  if (value > INT64_MAX) return std::nullopt;
  return value;
}

}  // namespace fetch

#endif
