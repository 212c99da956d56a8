// The digests of a package: a text that lies beside it, signed, and proves each of its chunks by itself.
//
//   tarvolin-digests 1
//   length BYTES
//   chunk BYTES
//   sha256 HEX            for each chunk in order; the last one may be short
//
// Every line ends in LF, numbers are decimal without leading zeros, hexadecimal digits are lower case.
//
// Of libsodium, tarv-fetch calls only what works without sodium_init(), which would link in all that is
// chosen there.
#ifndef TARVOLIN_FETCH_DIGESTS_H
#define TARVOLIN_FETCH_DIGESTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fetch {

constexpr size_t kMaxDigestsText = size_t{5} * 1024 * 1024;  // bytes
constexpr uint32_t kMinChunk = 16 * 1024;                    // bytes; chunks are powers of two
constexpr uint32_t kMaxChunk = 1024 * 1024;
constexpr uint32_t kUsualChunk = 64 * 1024;  // the least that is chosen by itself
constexpr uint64_t kMaxChunks = 65536;

using sha256_digest = std::array<uint8_t, 32>;

struct digest_list {
  uint64_t length = 0;                // of the package, at least 1
  uint32_t chunk = 0;                 // bytes of each chunk but the last
  std::vector<sha256_digest> sha256;  // one for each chunk
};

// Reads the text. Returns nullptr, or what is wrong with it; `list` is then of no use.
[[nodiscard]] const char* parse_digests(std::string_view text, digest_list& list);

// The text for a list.
[[nodiscard]] std::string digests_text(const digest_list& list);

// The chunk size for a package of that many bytes: the least from kUsualChunk on that makes at most
// kMaxChunks chunks; 0 when the package is too long for any.
[[nodiscard]] uint32_t chunk_for(uint64_t length);

// The SHA-256 of these bytes.
[[nodiscard]] sha256_digest sha256_of(const void* data, size_t size);

}  // namespace fetch

#endif
