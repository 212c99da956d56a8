#include "fetch/prover.h"

#include <algorithm>
#include <cstring>

namespace fetch {

prover::prover(const digest_list* digests)
    : digests_(digests), buffer_(new char[(digests != nullptr ? digests->chunk : 0) + kLargestPiece]) {}

size_t prover::chunk_size() const {
  const uint64_t begin = static_cast<uint64_t>(chunk_number_) * digests_->chunk;
  return static_cast<size_t>(std::min<uint64_t>(digests_->chunk, digests_->length - begin));
}

prover::state prover::judge() {
  state_ = state::gathering;
  if (digests_ == nullptr) {
    proven_ = count_;
    return state_ = count_ > 0 ? state::proven : state::gathering;
  }
  // Bytes behind the last chunk belong to nothing.
  if (chunk_number_ == digests_->sha256.size() || count_ < chunk_size()) return state_;
  if (sha256_of(buffer_.get(), chunk_size()) != digests_->sha256[chunk_number_]) return state_ = state::wrong;
  proven_ = chunk_size();
  return state_ = state::proven;
}

prover::state prover::take(std::string_view piece) {
  memcpy(&buffer_[count_], piece.data(), piece.size());
  count_ += piece.size();
  return judge();
}

std::string_view prover::ready() const {
  return {&buffer_[handed_], proven_ - handed_};
}

prover::state prover::handed_on(size_t count) {
  handed_ += count;
  if (handed_ < proven_) return state_;
  memmove(&buffer_[0], &buffer_[proven_], count_ - proven_);
  count_ -= proven_;
  proven_ = handed_ = 0;
  ++chunk_number_;
  return judge();
}

void prover::forget() {
  if (state_ == state::proven) {
    count_ = proven_;  // what is proven stays proven
    return;
  }
  count_ = 0;
  state_ = state::gathering;
}

}  // namespace fetch
