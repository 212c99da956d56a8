// The header of a server's answer, as far as a download looks at it. Pure functions.
#ifndef TARVOLIN_FETCH_ANSWER_H
#define TARVOLIN_FETCH_ANSWER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fetch {

constexpr size_t kMaxHeader =
    size_t{128} * 1024;                // bytes of all header lines of one exchange, redirects included
constexpr size_t kMaxValidator = 512;  // bytes of an ETag or date that is remembered

// "bytes FIRST-LAST/TOTAL"
struct content_range {
  uint64_t first = 0, last = 0;   // the last byte is part of it
  std::optional<uint64_t> total;  // nothing for "*"
};

struct answer {
  int status = 0;                      // 0 before the status line
  std::optional<uint64_t> length;      // Content-Length
  std::optional<content_range> range;  // Content-Range, when it is well formed
  bool contradicts_itself = false;     // a number that is none, or two that differ
  bool encoded = false;                // Content-Encoding is more than "identity"
  std::string etag, modified, date;    // as sent; empty when absent, too long, or not plain text
  std::string retry_after;
  size_t header_bytes = 0;  // of this exchange, redirects included
};

// Takes a header line, with or without its line end. A status line begins a new answer.
void take_header_line(answer& into, std::string_view line);

// What an If-Range header may say: the ETag when it is a strong one, else the date when it tells of a file
// that was at rest; empty when neither is there.
[[nodiscard]] std::string validator_of(const answer& given);

// Seconds that the server wants to be left alone for, 0 when it does not say. A date is read against the
// answer's own, since the module's clock may be wrong.
[[nodiscard]] int64_t retry_after_seconds(const answer& given);

}  // namespace fetch

#endif
