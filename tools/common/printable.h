// Text of unknown origin, made safe for a terminal and for JSON.
//
// Texts of a package are 8-bit: they may hold control characters and bytes that are no UTF-8. Well-formed
// UTF-8 passes unchanged in both forms.
#ifndef TARVOLIN_TOOLS_COMMON_PRINTABLE_H
#define TARVOLIN_TOOLS_COMMON_PRINTABLE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace tools {

// `text` with control characters and malformed bytes as \xNN and a backslash as \\.
[[nodiscard]] std::string printable(std::string_view text);

// `text` as a JSON string, quotes included. A malformed byte becomes U+FFFD: JSON has no form for it.
[[nodiscard]] std::string json_string(std::string_view text);

// True when `text` holds a control character (C0, DEL or C1).
[[nodiscard]] bool holds_control_character(std::string_view text);

// A number that is a bit pattern, as the updater's log prints it: 0x and eight digits.
[[nodiscard]] std::string in_hex(uint32_t value);

}  // namespace tools

#endif
