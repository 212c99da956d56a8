#include "tools/common/printable.h"

#include <cinttypes>
#include <cstddef>
#include <cstdio>

namespace tools {

namespace {

// Lead bytes of UTF-8 and what may follow: ranges for the second byte keep out overlong forms, surrogates and
// values past U+10FFFF.
struct lead_range {
  uint8_t first, last;
  uint8_t second_low, second_high;
  size_t length;
};

constexpr lead_range kLeads[] = {
    {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

uint8_t byte_at(std::string_view text, size_t i) {
  return static_cast<uint8_t>(text[i]);
}

// True when `text`, which begins with a byte of `lead`, has the following bytes that `lead` asks for.
bool continues(const lead_range& lead, std::string_view text) {
  if (text.size() < lead.length) return false;
  for (size_t i = 1; i < lead.length; ++i) {
    const uint8_t low = i == 1 ? lead.second_low : 0x80;
    const uint8_t high = i == 1 ? lead.second_high : 0xBF;
    if (byte_at(text, i) < low || byte_at(text, i) > high) return false;
  }
  return true;
}

struct character {
  std::string_view bytes;
  bool well_formed;
};

// Takes the first character off `text`; one byte when no well-formed character is there.
character take_character(std::string_view& text) {
  character taken = {text.substr(0, 1), false};
  for (const lead_range& lead : kLeads) {
    if (byte_at(text, 0) < lead.first || byte_at(text, 0) > lead.last) continue;
    if (continues(lead, text)) taken = {text.substr(0, lead.length), true};
  }
  text.remove_prefix(taken.bytes.size());
  return taken;
}

// C0, DEL, and C1 in its two-byte form; a terminal obeys all of them.
bool is_control(std::string_view bytes) {
  if (bytes.size() == 1) return byte_at(bytes, 0) < 0x20 || byte_at(bytes, 0) == 0x7F;
  return bytes.size() == 2 && byte_at(bytes, 0) == 0xC2 && byte_at(bytes, 1) < 0xA0;
}

// A byte in two hexadecimal digits, behind the beginning of an escape.
std::string escaped(const char* beginning, char byte) {
  char digits[4];
  snprintf(digits, sizeof digits, "%02x", static_cast<uint8_t>(byte));
  return std::string(beginning) + digits;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const auto [bytes, well_formed] = take_character(text);
    if (well_formed && !is_control(bytes)) {
      out += bytes == "\\" ? std::string_view("\\\\") : bytes;
      continue;
    }
    for (const char c : bytes) out += escaped("\\x", c);
  }
  return out;
}

std::string json_string(std::string_view text) {
  std::string out = "\"";
  while (!text.empty()) {
    const auto [bytes, well_formed] = take_character(text);
    if (!well_formed) {
      out += "\\ufffd";
    } else if (is_control(bytes)) {
      out += escaped("\\u00", bytes.back());  // the last byte is the code point
    } else {
      if (bytes == "\"" || bytes == "\\") out += '\\';
      out += bytes;
    }
  }
  return out + '"';
}

bool holds_control_character(std::string_view text) {
  while (!text.empty()) {
    if (is_control(take_character(text).bytes)) return true;
  }
  return false;
}

std::string in_hex(uint32_t value) {
  char text[16];
  snprintf(text, sizeof text, "0x%08" PRIx32, value);
  return text;
}

}  // namespace tools
