#include "fetch/minisign.h"

#include <sodium.h>

#include <cstring>

namespace fetch {

namespace {

constexpr std::string_view kUntrusted = "untrusted comment: ";
constexpr std::string_view kTrusted = "trusted comment: ";

// Takes a line off `text`, without its LF. False when there is no whole one.
bool take_line(std::string_view& text, std::string_view& line) {
  const size_t end = text.find('\n');
  if (end == std::string_view::npos) return false;
  line = text.substr(0, end);
  text.remove_prefix(end + 1);
  return true;
}

bool take_comment(std::string_view& text, std::string_view prefix, std::string_view& comment) {
  if (!take_line(text, comment) || comment.substr(0, prefix.size()) != prefix) return false;
  comment.remove_prefix(prefix.size());
  return true;
}

// Takes a line of base64 that stands for exactly `size` bytes. libsodium's reader takes some characters for
// others, so the bytes have to give the same line again.
bool take_base64(std::string_view& text, uint8_t* bytes, size_t size) {
  constexpr size_t kLongest = 128;
  std::string_view line;
  size_t decoded = 0;
  if (!take_line(text, line) || line.size() >= kLongest) return false;
  if (sodium_base642bin(bytes, size, line.data(), line.size(), nullptr, &decoded, nullptr,
                        sodium_base64_VARIANT_ORIGINAL) != 0 ||
      decoded != size) {
    return false;
  }
  char again[kLongest];
  return line == sodium_bin2base64(again, sizeof again, bytes, size, sodium_base64_VARIANT_ORIGINAL);
}

const uint8_t* bytes_of(std::string_view text) {
  return reinterpret_cast<const uint8_t*>(text.data());
}

bool is_signed_by(const public_key& key, const std::array<uint8_t, 64>& bytes, std::string_view content) {
  return crypto_sign_ed25519_verify_detached(bytes.data(), bytes_of(content), content.size(),
                                             key.key.data()) == 0;
}

// The legacy form signs the content itself, the newer one its hash.
bool content_is_signed_by(const public_key& key, const signature& given, std::string_view content) {
  if (!given.prehashed) return is_signed_by(key, given.bytes, content);
  std::array<uint8_t, 64> hash;
  crypto_generichash_blake2b(hash.data(), hash.size(), bytes_of(content), content.size(), nullptr, 0);
  return is_signed_by(key, given.bytes, {reinterpret_cast<const char*>(hash.data()), hash.size()});
}

bool comment_is_signed_by(const public_key& key, const signature& given) {
  const std::string content(reinterpret_cast<const char*>(given.bytes.data()), given.bytes.size());
  return is_signed_by(key, given.comment_bytes, content + given.trusted_comment);
}

}  // namespace

const char* parse_public_key(std::string_view text, public_key& key) {
  std::array<uint8_t, 42> bytes;
  std::string_view comment;
  if (!take_comment(text, kUntrusted, comment)) return "its first line is no comment";
  if (!take_base64(text, bytes.data(), bytes.size()) || !text.empty())
    return "it is not a minisign public key";
  if (memcmp(bytes.data(), "Ed", 2) != 0) return "its algorithm is not Ed25519";
  memcpy(key.id.data(), &bytes[2], key.id.size());
  memcpy(key.key.data(), &bytes[10], key.key.size());
  return nullptr;
}

const char* parse_signature(std::string_view text, signature& found) {
  std::array<uint8_t, 74> bytes;
  std::string_view comment;
  if (text.size() > kMaxSignatureText) return "too long";
  if (!take_comment(text, kUntrusted, comment)) return "its first line is no comment";
  if (!take_base64(text, bytes.data(), bytes.size())) return "its second line is not a minisign signature";
  found.prehashed = memcmp(bytes.data(), "ED", 2) == 0;
  if (!found.prehashed && memcmp(bytes.data(), "Ed", 2) != 0) return "its algorithm is not Ed25519";
  memcpy(found.key_id.data(), &bytes[2], found.key_id.size());
  memcpy(found.bytes.data(), &bytes[10], found.bytes.size());
  if (!take_comment(text, kTrusted, comment)) return "its third line is no trusted comment";
  found.trusted_comment = comment;
  if (!take_base64(text, found.comment_bytes.data(), found.comment_bytes.size()) || !text.empty())
    return "its fourth line is not the trusted comment's signature";
  return nullptr;
}

const char* prove_signature(const signature& given, std::string_view content,
                            const std::vector<public_key>& keys) {
  const char* fault = "it was made with another key";
  for (const public_key& key : keys) {
    if (key.id != given.key_id) continue;
    if (!content_is_signed_by(key, given, content)) {
      fault = "it is not the signature of this file";
    } else if (!comment_is_signed_by(key, given)) {
      fault = "its trusted comment was changed";
    } else {
      return nullptr;
    }
  }
  return fault;
}

}  // namespace fetch
