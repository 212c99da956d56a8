#include "fetch/course.h"

#include <algorithm>

#include "fetch/digests.h"

namespace fetch {

namespace {

constexpr int kPartialContent = 206;

judgement refused(std::string why) {
  return {verdict::refused, std::move(why)};
}

std::string status_text(int status) {
  return "the server answers with status " + std::to_string(status);
}

bool differ(const std::string& a, const std::string& b) {
  return !a.empty() && !b.empty() && a != b;
}

bool is_another_file(const answer& first, const answer& now) {
  if (!first.etag.empty() && !now.etag.empty()) return first.etag != now.etag;
  return differ(first.modified, now.modified);
}

// Statuses 408 and 429 ask for patience; no other fault of the request goes away by itself.
bool may_get_better(int status) {
  return status == 408 || status == 429 || status >= 500;
}

}  // namespace

course::course(std::optional<uint64_t> signed_length) : signed_(signed_length), length_(signed_length) {}

request course::next_request() const {
  request wanted;
  wanted.one_byte = probing_;
  if (probing_ || position_ > 0) wanted.from = position_;
  // Signed, the digests tell whether it is the same file, and servers that share a name may differ in their
  // validators.
  if (position_ > 0 && !signed_) wanted.if_range = validator_of(first_);
  wanted.past_caches = useless_answers_ > 0 || wrong_chunks_ > 0;
  return wanted;
}

judgement course::judge(const answer& given) {
  if (may_get_better(given.status)) return {verdict::broken, status_text(given.status)};
  if (given.status >= 400) return refused(status_text(given.status));
  if (given.status != 200 && given.status != kPartialContent) return useless(status_text(given.status));
  if (given.contradicts_itself) return useless("the answer's header contradicts itself");
  if (given.encoded) return useless("the answer is compressed, though nobody asked for that");
  if (probing_) return judge_length_probe(given);
  return given.status == kPartialContent ? judge_range(given) : judge_whole(given);
}

judgement course::judge_range(const answer& given) {
  if (!given.range) return useless("the answer is a range that does not say which");
  const content_range& range = *given.range;
  if (given.length && *given.length != range.last - range.first + 1)
    return useless("the answer's length is not that of its range");
  if (range.first > position_ || range.last < position_)
    return useless("the answer has the range from " + std::to_string(range.first) + ", not from " +
                   std::to_string(position_));
  judgement found = compare_file(given, range.total);
  to_skip_ = position_ - range.first;
  return found;
}

judgement course::judge_whole(const answer& given) {
  if (!given.length && !length_) {
    probing_ = true;
    return {verdict::at_once, "the answer does not tell the length"};
  }
  judgement found = compare_file(given, given.length);
  to_skip_ = position_;
  return found;
}

// The one byte itself is of no use: the whole file is asked for next.
judgement course::judge_length_probe(const answer& given) {
  if (given.status != kPartialContent || !given.range || !given.range->total)
    return refused("no answer tells the length; sign the package, or have the server announce it");
  if (*given.range->total == 0) return refused("the file is empty");
  length_ = given.range->total;
  first_ = given;
  probing_ = false;
  return {verdict::at_once, "the length is known now"};
}

judgement course::compare_file(const answer& given, std::optional<uint64_t> total) {
  if (length_ && total && *total != *length_) {
    const std::string why =
        "the file has " + std::to_string(*total) + " bytes, not " + std::to_string(*length_);
    return signed_ ? useless(why) : refused(why + ": it was replaced");
  }
  if (total == 0u) return refused("the file is empty");
  if (!signed_ && is_another_file(first_, given)) return refused("the file was replaced");
  if (!length_) length_ = total;
  if (!length_) return refused("no answer tells the length");
  if (first_.status == 0) first_ = given;
  has_end_ = given.length || given.range;
  began_at_ = position_;
  return {};
}

// A server may send less than was asked for, and then has the next part asked for at once; but with nothing
// that can be proven in it, it would go on for ever.
judgement course::judge_early_end() {
  if (!has_end_) return {verdict::broken, "the connection ended"};
  if (position_ >= began_at_ + kMinChunk) return {verdict::at_once, "the answer was shorter than asked for"};
  return useless("the answer was shorter than a chunk");
}

judgement course::judge_wrong_chunk() {
  const std::string why =
      "the bytes from " + std::to_string(position_) + " on are not those that were signed";
  if (++wrong_chunks_ >= kMaxUselessAnswers) return refused(why + ", three times");
  return {verdict::broken, why};
}

judgement course::useless(std::string why) {
  if (++useless_answers_ >= kMaxUselessAnswers) return refused(why + "; three answers were like this");
  return {verdict::broken, std::move(why)};
}

uint64_t course::skip(uint64_t size) {
  const uint64_t skipped = std::min(size, to_skip_);
  to_skip_ -= skipped;
  return skipped;
}

void course::proved(uint64_t count) {
  position_ += count;
  useless_answers_ = 0;
  wrong_chunks_ = 0;
}

}  // namespace fetch
