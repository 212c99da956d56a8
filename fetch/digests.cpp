#include "fetch/digests.h"

#include <sodium.h>

#include <cstring>

#include "fetch/number.h"

namespace fetch {

namespace {

// Takes "NAME VALUE\n" off `text`. False when the line is of another name or has no end.
bool take_line(std::string_view& text, std::string_view name, std::string_view& value) {
  if (text.substr(0, name.size()) != name || text.substr(name.size(), 1) != " ") return false;
  const size_t end = text.find('\n');
  if (end == std::string_view::npos) return false;
  value = text.substr(name.size() + 1, end - name.size() - 1);
  text.remove_prefix(end + 1);
  return true;
}

bool take_number(std::string_view& text, std::string_view name, uint64_t& number) {
  std::string_view value;
  if (!take_line(text, name, value)) return false;
  const auto found = parse_number(value);
  if (!found) return false;
  number = *found;
  return true;
}

bool is_chunk_size(uint64_t size) {
  return size >= kMinChunk && size <= kMaxChunk && (size & (size - 1)) == 0;
}

// -1 for anything but a lower-case hexadecimal digit: one list has one text.
int digit_of(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

bool take_digest(std::string_view& text, sha256_digest& digest) {
  std::string_view hex;
  if (!take_line(text, "sha256", hex) || hex.size() != 2 * digest.size()) return false;
  for (size_t i = 0; i < digest.size(); ++i) {
    const int high = digit_of(hex[2 * i]), low = digit_of(hex[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    digest[i] = static_cast<uint8_t>(high * 16 + low);
  }
  return true;
}

}  // namespace

const char* parse_digests(std::string_view text, digest_list& list) {
  uint64_t version = 0, chunk = 0;
  if (text.size() > kMaxDigestsText) return "longer than 5 MiB";
  if (!take_number(text, "tarvolin-digests", version)) return "not a list of digests";
  if (version != 1) return "of a version that is not known here";
  if (!take_number(text, "length", list.length) || list.length == 0) return "no good line \"length\"";
  if (!take_number(text, "chunk", chunk) || !is_chunk_size(chunk)) return "no good line \"chunk\"";
  list.chunk = static_cast<uint32_t>(chunk);
  const uint64_t chunks = (list.length - 1) / chunk + 1;
  if (chunks > kMaxChunks) return "more than 65536 chunks";
  list.sha256.resize(static_cast<size_t>(chunks));
  for (sha256_digest& digest : list.sha256) {
    if (!take_digest(text, digest)) return "a line \"sha256\" is missing or wrong";
  }
  return text.empty() ? nullptr : "something follows the last chunk's line";
}

std::string digests_text(const digest_list& list) {
  std::string text = "tarvolin-digests 1\nlength " + std::to_string(list.length) + "\nchunk " +
                     std::to_string(list.chunk) + '\n';
  for (const sha256_digest& digest : list.sha256) {
    char hex[2 * sizeof digest + 1];
    text += "sha256 ";
    text += sodium_bin2hex(hex, sizeof hex, digest.data(), digest.size());
    text += '\n';
  }
  return text;
}

uint32_t chunk_for(uint64_t length) {
  for (uint32_t chunk = kUsualChunk; chunk <= kMaxChunk; chunk *= 2) {
    if (length <= chunk * kMaxChunks) return chunk;
  }
  return 0;
}

sha256_digest sha256_of(const void* data, size_t size) {
  sha256_digest digest;
  crypto_hash_sha256(digest.data(), static_cast<const unsigned char*>(data), size);
  return digest;
}

}  // namespace fetch
