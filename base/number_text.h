// Numbers in text that comes from outside, read with the same result on 32-bit and 64-bit hosts.
//
// Both readers take what strtol(3) and strtoul(3) take in the C locale: leading white space, one sign, then
// digits up to the first other character. A value that does not fit is held at the nearest 32-bit limit, as
// those functions do where `long` is 32 bits wide.
#ifndef TARVOLIN_BASE_NUMBER_TEXT_H
#define TARVOLIN_BASE_NUMBER_TEXT_H

#include <cstdint>
#include <optional>
#include <string_view>

// The decimal number at the start of `text`, INT32_MIN to INT32_MAX; nothing when no digit is there.
[[nodiscard]] std::optional<int32_t> parse_decimal(std::string_view text);

// The hexadecimal number at the start of `text` ("0x" allowed), 0 to UINT32_MAX, negated modulo 2^32 after a
// minus sign; nothing when no digit is there.
[[nodiscard]] std::optional<uint32_t> parse_hex(std::string_view text);

#endif
