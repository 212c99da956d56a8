// The one chunk in hand: gathered, proven by its digest, then handed on. No byte leaves before that.
#ifndef TARVOLIN_FETCH_PROVER_H
#define TARVOLIN_FETCH_PROVER_H

#include <cstdint>
#include <memory>
#include <string_view>

#include "fetch/digests.h"

namespace fetch {

constexpr size_t kLargestPiece = size_t{16} * 1024;  // bytes that libcurl hands over at once, at most

class prover {
 public:
  enum class state {
    gathering,  // more bytes are wanted
    proven,     // ready() has bytes to be handed on
    wrong,      // the chunk is not what was signed; forget() it
  };

  // With the digests of the package, which have to outlive this, or without: then every byte is as good as
  // proven.
  explicit prover(const digest_list* digests);

  // Whether it takes the next piece.
  [[nodiscard]] bool has_room() const { return state_ == state::gathering; }
  // Takes a piece of at most kLargestPiece bytes that goes on where the one before ended; only while it has
  // room. Returns the state.
  state take(std::string_view piece);
  // Proven bytes that are still to be handed on.
  [[nodiscard]] std::string_view ready() const;
  // The first `count` of them were handed on; after the last, the next chunk is gathered. Returns the state.
  state handed_on(size_t count);
  // Drops what was not proven: the next piece begins a chunk again.
  void forget();

 private:
  state judge();
  size_t chunk_size() const;

  const digest_list* digests_;
  std::unique_ptr<char[]> buffer_;  // a chunk, and what of the last piece is of the next one
  size_t count_ = 0;                // bytes in the buffer
  size_t proven_ = 0, handed_ = 0;  // bytes from its start on
  size_t chunk_number_ = 0;
  state state_ = state::gathering;
};

}  // namespace fetch

#endif
