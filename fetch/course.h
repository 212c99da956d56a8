// The course of a package's download over any number of answers: what to ask for next, and which bytes of an
// answer are those that are wanted. Pure; knows nothing of sockets or time.
#ifndef TARVOLIN_FETCH_COURSE_H
#define TARVOLIN_FETCH_COURSE_H

#include <cstdint>
#include <optional>
#include <string>

#include "fetch/answer.h"

namespace fetch {

constexpr int kMaxUselessAnswers = 3;  // in a row, then the download is refused

// What to ask a server for.
struct request {
  std::optional<uint64_t> from;  // first byte of a range without end; nothing: the whole file
  bool one_byte = false;         // the range is the first byte alone, to learn the length
  std::string if_range;          // validator of the file that is wanted; empty: none
  bool past_caches = false;      // what a cache has was of no use
};

// What an answer, or the end of one, means.
enum class verdict {
  usable,
  broken,   // ask again, after a wait
  refused,  // asking again cannot make it better
  at_once,  // all is well, and there is more to ask for
};

struct judgement {
  verdict what = verdict::usable;
  std::string why;  // unless usable
};

class course {
 public:
  // Of a signed package, whose digests tell its length; without a length of one whose first answer counts.
  explicit course(std::optional<uint64_t> signed_length);

  // The request to make now.
  [[nodiscard]] request next_request() const;
  // Looks at an answer's header, before its first byte.
  [[nodiscard]] judgement judge(const answer& given);
  // The transfer that was judged usable has come to an end that looks like a good one, before the package
  // did.
  [[nodiscard]] judgement judge_early_end();
  // A chunk was not what was signed.
  [[nodiscard]] judgement judge_wrong_chunk();

  // Passes over those of the next `size` bytes of the answer that are not wanted. Returns how many.
  [[nodiscard]] uint64_t skip(uint64_t size);
  // The next `count` bytes of the package are proven.
  void proved(uint64_t count);

  // Bytes of the package; only once known.
  const std::optional<uint64_t>& length() const { return length_; }
  // Bytes proven so far: the first byte to ask for.
  uint64_t position() const { return position_; }
  bool complete() const { return length_ == position_; }

 private:
  judgement judge_range(const answer& given);
  judgement judge_whole(const answer& given);
  judgement judge_length_probe(const answer& given);
  judgement compare_file(const answer& given, std::optional<uint64_t> total);
  judgement useless(std::string why);

  bool signed_;
  std::optional<uint64_t> length_;
  uint64_t position_ = 0;
  uint64_t to_skip_ = 0;   // of the answer under way
  bool probing_ = false;   // the length is unknown, and has to be asked for
  bool has_end_ = false;   // the answer under way said where it ends
  uint64_t began_at_ = 0;  // position when the answer began
  answer first_;           // of an unsigned download: which file this is
  int useless_answers_ = 0, wrong_chunks_ = 0;
};

}  // namespace fetch

#endif
