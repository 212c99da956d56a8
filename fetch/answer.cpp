#include "fetch/answer.h"

#include <strings.h>

#include <algorithm>
#include <ctime>

#include "fetch/number.h"

namespace fetch {

namespace {

bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlank);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// Text that may go into a request again: an odd one is as good as none.
std::string plain(std::string_view value) {
  const bool odd = std::any_of(value.begin(), value.end(), [](char c) { return c < ' ' || c > '~'; });
  return odd || value.size() > kMaxValidator ? std::string() : std::string(value);
}

std::optional<content_range> parse_range(std::string_view value) {
  if (!same_name(value.substr(0, 6), "bytes ")) return std::nullopt;
  value.remove_prefix(6);
  const size_t dash = value.find('-'), slash = value.find('/');
  if (dash == std::string_view::npos || slash == std::string_view::npos || dash > slash) return std::nullopt;
  const auto first = parse_number(value.substr(0, dash));
  const auto last = parse_number(value.substr(dash + 1, slash - dash - 1));
  const auto total = parse_number(value.substr(slash + 1));
  if (!first || !last || *first > *last) return std::nullopt;
  if (!total && value.substr(slash + 1) != "*") return std::nullopt;
  if (total && *last >= *total) return std::nullopt;
  return content_range{*first, *last, total};
}

void take_length(answer& into, std::string_view value) {
  const auto length = parse_number(value);
  if (!length || (into.length && *into.length != *length)) into.contradicts_itself = true;
  into.length = length;
}

void take_content_range(answer& into, std::string_view value) {
  into.contradicts_itself = into.contradicts_itself || into.range;
  into.range = parse_range(value);
}

// "HTTP/1.1 206 Partial Content", "HTTP/2 206"
int parse_status(std::string_view line) {
  const size_t space = line.find(' ');
  if (space == std::string_view::npos) return 0;
  return static_cast<int>(parse_number(line.substr(space + 1, 3)).value_or(0));
}

void take_field(answer& into, std::string_view name, std::string_view value) {
  if (same_name(name, "content-length")) take_length(into, value);
  if (same_name(name, "content-range")) take_content_range(into, value);
  if (same_name(name, "content-encoding")) into.encoded = into.encoded || !same_name(value, "identity");
  if (same_name(name, "etag")) into.etag = plain(value);
  if (same_name(name, "last-modified")) into.modified = plain(value);
  if (same_name(name, "date")) into.date = plain(value);
  if (same_name(name, "retry-after")) into.retry_after = plain(value);
}

bool is_strong(std::string_view etag) {
  return etag.size() >= 2 && etag.front() == '"' && etag.back() == '"';
}

// Seconds since the epoch of a date as servers have to send it (RFC 9110, 5.6.7). libcurl's reader is no
// help: on 32-bit machines it may have been built for another width of time_t than this program.
std::optional<int64_t> parse_date(const std::string& text) {
  tm parts = {};
  const char* const end = strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  if (end == nullptr || *end != '\0') return std::nullopt;
  return timegm(&parts);
}

}  // namespace

void take_header_line(answer& into, std::string_view line) {
  const size_t bytes = into.header_bytes + line.size();
  if (line.substr(0, 5) == "HTTP/") {
    into = {};
    into.status = parse_status(trimmed(line));
  } else if (const size_t colon = line.find(':'); colon != std::string_view::npos) {
    take_field(into, line.substr(0, colon), trimmed(line.substr(colon + 1)));
  }
  into.header_bytes = bytes;
}

std::string validator_of(const answer& given) {
  if (is_strong(given.etag)) return given.etag;
  // A file that changes twice within a second has the same date both times.
  return given.modified == given.date ? std::string() : given.modified;
}

int64_t retry_after_seconds(const answer& given) {
  if (const auto seconds = parse_number(given.retry_after)) {
    return static_cast<int64_t>(std::min<uint64_t>(*seconds, INT32_MAX));
  }
  const std::optional<int64_t> until = parse_date(given.retry_after), now = parse_date(given.date);
  if (!until || !now) return 0;
  return std::clamp<int64_t>(*until - *now, 0, INT32_MAX);
}

}  // namespace fetch
