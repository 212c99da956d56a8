#include "base/number_text.h"

#include <algorithm>

namespace {

constexpr std::string_view kSpace = " \t\n\v\f\r";

// Removes leading white space and one sign from `text`; true for a minus sign.
bool take_sign(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kSpace), text.size()));
  if (text.empty() || (text[0] != '-' && text[0] != '+')) return false;
  const bool negative = text[0] == '-';
  text.remove_prefix(1);
  return negative;
}

// Value of one digit in bases up to 16, or 255.
uint32_t digit_value(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint32_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<uint32_t>(c - 'A' + 10);
  return 255;
}

// The digits at the start of `text` as a magnitude held at `limit`; nothing when there is none.
std::optional<uint32_t> parse_digits(std::string_view text, uint32_t base, uint32_t limit) {
  if (text.empty() || digit_value(text[0]) >= base) return std::nullopt;
  uint64_t value = 0;
  for (const char c : text) {
    if (digit_value(c) >= base) break;
    // Held at the limit in every step, so that a text of any length cannot wrap 64 bits.
    value = std::min<uint64_t>(value * base + digit_value(c), limit);
  }
  return static_cast<uint32_t>(value);
}

}  // namespace

std::optional<int32_t> parse_decimal(std::string_view text) {
  const bool negative = take_sign(text);
  const auto magnitude = parse_digits(text, 10, negative ? 0x80000000u : 0x7FFFFFFFu);
  if (!magnitude) return std::nullopt;
  return static_cast<int32_t>(negative ? 0u - *magnitude : *magnitude);
}

std::optional<uint32_t> parse_hex(std::string_view text) {
  const bool negative = take_sign(text);
  const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (prefixed && digit_value(text[2]) < 16) text.remove_prefix(2);
  const auto magnitude = parse_digits(text, 16, UINT32_MAX);
  if (!magnitude) return std::nullopt;
  // A value past the limit stays at the limit under either sign.
  return negative && *magnitude != UINT32_MAX ? 0u - *magnitude : *magnitude;
}
