#include "fetch/news.h"

#include <cstdio>

namespace fetch {

namespace {

std::string json_string(const std::string& text) {
  std::string out = "\"";
  for (const char c : printable(text)) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + '"';
}

}  // namespace

std::string printable(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c >= ' ' && c <= '~' && c != '\\') {
      out += c;
      continue;
    }
    char escape[8];
    snprintf(escape, sizeof escape, c == '\\' ? "\\\\" : "\\x%02x", static_cast<unsigned char>(c));
    out += escape;
  }
  return out;
}

void news::tell(const char* event, const std::string& text, std::initializer_list<figure> figures) const {
  if (!as_json_) {
    fprintf(stderr, "tarv-fetch: %s\n", printable(text).c_str());
    return;
  }
  std::string line = "{\"event\": " + json_string(event) + ", \"text\": " + json_string(text);
  for (const figure& one : figures)
    line += std::string(", \"") + one.name + "\": " + std::to_string(one.value);
  printf("%s}\n", line.c_str());
  (void)!fflush(stdout);
}

}  // namespace fetch
