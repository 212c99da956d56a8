#include "fetch/job.h"

#include <algorithm>

namespace fetch {

judgement job::judge_end(const exchange_end& end) {
  judgement found = {};
  std::swap(found, found_);
  if (found.what == verdict::usable) {
    if (is_hopeless(end.code)) {
      found = {verdict::refused, end.why};
    } else if (end.code != CURLE_OK) {
      found = {verdict::broken, end.why};
    } else {
      found = judge_good_end();
    }
  }
  if (!complete()) forget();
  return found;
}

// The length is not needed here: a file that was cut is not the one that was signed.
bool document::take_header(const answer& given) {
  course reader(std::nullopt);
  found_ = reader.judge(given);
  // To be told the length does not matter, and a range was not asked for.
  if (found_.what == verdict::at_once) found_ = {};
  return !has_verdict();
}

bool document::take_body(std::string_view piece) {
  text_ += piece;
  if (text_.size() > limit_) found_ = {verdict::refused, "it is too long"};
  return !has_verdict();
}

judgement document::judge_good_end() {
  complete_ = true;
  return {};
}

package_download::package_download(std::string url, const digest_list* digests)
    : job("package", std::move(url)),
      course_(digests != nullptr ? std::optional<uint64_t>(digests->length) : std::nullopt),
      prover_(digests) {}

bool package_download::take_header(const answer& given) {
  found_ = course_.judge(given);
  return !has_verdict();
}

bool package_download::take_body(std::string_view piece) {
  piece.remove_prefix(static_cast<size_t>(course_.skip(piece.size())));
  // What follows the package is not part of it.
  piece = piece.substr(0, static_cast<size_t>(std::min<uint64_t>(piece.size(), *length() - position())));
  if (!piece.empty()) note(prover_.take(piece));
  pump();
  return !has_verdict();
}

void package_download::note(prover::state now) {
  if (now == prover::state::proven) course_.proved(prover_.ready().size());
  if (now == prover::state::wrong) found_ = course_.judge_wrong_chunk();
}

void package_download::pump() {
  while (outlet_ && has_ready()) {
    const size_t before = prover_.ready().size();
    const size_t taken = outlet_(prover_.ready());
    if (taken == 0) return;
    const prover::state now = prover_.handed_on(taken);
    if (taken == before) note(now);
  }
}

}  // namespace fetch
