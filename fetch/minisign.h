// Signatures as minisign(1) makes them, in both its forms (prehashed and legacy), with the trusted comment.
#ifndef TARVOLIN_FETCH_MINISIGN_H
#define TARVOLIN_FETCH_MINISIGN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fetch {

constexpr size_t kMaxSignatureText =
    size_t{16} * 1024;  // bytes of a signature or key file; a comment is of any length

struct public_key {
  std::array<uint8_t, 8> id = {};
  std::array<uint8_t, 32> key = {};
};

struct signature {
  bool prehashed = false;
  std::array<uint8_t, 8> key_id = {};
  std::array<uint8_t, 64> bytes = {};          // over the file, or over its BLAKE2b-512 where prehashed
  std::string trusted_comment;                 // without its prefix
  std::array<uint8_t, 64> comment_bytes = {};  // over `bytes` and the trusted comment
};

// These read the text of a file, which ends in LF. They return nullptr, or what is wrong with it.
[[nodiscard]] const char* parse_public_key(std::string_view text, public_key& key);
[[nodiscard]] const char* parse_signature(std::string_view text, signature& found);

// Proves that one of `keys` signed `content` and the trusted comment. Returns nullptr, or what is wrong.
[[nodiscard]] const char* prove_signature(const signature& given, std::string_view content,
                                          const std::vector<public_key>& keys);

}  // namespace fetch

#endif
