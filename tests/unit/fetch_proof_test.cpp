// What proves a package to tarv-fetch: public keys, signatures, digests, and the chunk in hand.
#include <gtest/gtest.h>
#include <sodium.h>

#include <random>

#include "fetch/digests.h"
#include "fetch/minisign.h"
#include "fetch/prover.h"

namespace fetch {
namespace {

using namespace std::string_literals;

std::string base64(const std::string& bytes) {
  std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
                    bytes.size(), sodium_base64_VARIANT_ORIGINAL);
  text.pop_back();  // the NUL that is counted, too
  return text;
}

// A signer, by the format's description and not by our code.
struct signer {
  explicit signer(char seed) : id(8, seed) {
    const std::string seeds(32, seed);
    crypto_sign_seed_keypair(key, secret, reinterpret_cast<const unsigned char*>(seeds.data()));
  }
  std::string sign(const std::string& text) const {
    unsigned char bytes[64];
    crypto_sign_detached(bytes, nullptr, reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                         secret);
    return {reinterpret_cast<const char*>(bytes), sizeof bytes};
  }
  std::string key_file() const {
    return "untrusted comment: a key\n" +
           base64("Ed" + id + std::string(reinterpret_cast<const char*>(key), 32)) + "\n";
  }
  std::string signature_file(const std::string& content, bool prehashed) const {
    unsigned char hash[64];
    crypto_generichash(hash, sizeof hash, reinterpret_cast<const unsigned char*>(content.data()),
                       content.size(), nullptr, 0);
    const std::string bytes =
        sign(prehashed ? std::string(reinterpret_cast<const char*>(hash), sizeof hash) : content);
    return "untrusted comment: x\n" + base64((prehashed ? "ED" : "Ed") + id + bytes) +
           "\ntrusted comment: package 1\n" + base64(sign(bytes + "package 1")) + "\n";
  }
  std::string id;
  unsigned char key[32], secret[64];
};

digest_list list_of(const std::string& content, uint32_t chunk) {
  digest_list list = {content.size(), chunk, {}};
  for (size_t at = 0; at < content.size(); at += chunk)
    list.sha256.push_back(sha256_of(&content[at], std::min<size_t>(chunk, content.size() - at)));
  return list;
}

std::string noise(size_t size) {
  std::mt19937 random(7);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// Nothing when all is proven, else what is not.
std::string fault_of(const std::string& digests, const std::string& signature_text,
                     const std::string& key_text) {
  std::vector<public_key> keys(1);
  signature given;
  digest_list list;
  const char* fault = parse_public_key(key_text, keys[0]);
  if (fault == nullptr) fault = parse_signature(signature_text, given);
  if (fault == nullptr) fault = prove_signature(given, digests, keys);
  if (fault == nullptr) fault = parse_digests(digests, list);
  return fault != nullptr ? fault : "";
}

TEST(FetchProof, EveryByteOfTheThreeFilesCounts) {
  const signer maker('m');
  const std::string digests = digests_text(list_of(noise(40000), kMinChunk));
  for (const bool prehashed : {true, false}) {
    const std::string files[] = {digests, maker.signature_file(digests, prehashed), maker.key_file()};
    ASSERT_EQ(fault_of(files[0], files[1], files[2]), "");
    for (size_t n = 0; n < 3; ++n) {
      // Nobody vouches for the comment that is called untrusted.
      const size_t from = n == 0 ? 0 : files[n].find('\n');
      for (size_t at = from; at < files[n].size(); ++at) {
        for (const int flip : {0x01, 0x20, 0x80}) {
          std::string changed[] = {files[0], files[1], files[2]};
          changed[n][at] = static_cast<char>(changed[n][at] ^ flip);
          EXPECT_NE(fault_of(changed[0], changed[1], changed[2]), "") << n << ' ' << at << ' ' << flip;
        }
        EXPECT_NE(
            fault_of(n == 0 ? files[0].substr(0, at) : files[0], n == 1 ? files[1].substr(0, at) : files[1],
                     n == 2 ? files[2].substr(0, at) : files[2]),
            "")
            << n << " cut at " << at;
      }
    }
  }
}

TEST(FetchProof, SignaturesOfOthersAreRefused) {
  const signer maker('m'), stranger('s');
  signer impostor('s');
  impostor.id = maker.id;
  const std::string digests = digests_text(list_of(noise(40000), kMinChunk));
  const std::string good = maker.signature_file(digests, true), key = maker.key_file();
  const auto second_half = [](const std::string& text) {
    return text.substr(text.find("trusted comment: pa"));
  };
  const auto first_half = [](const std::string& text) {
    return text.substr(0, text.find("trusted comment: pa"));
  };
  const struct {
    const char* name;
    std::string digests, signature, key, fault;
  } cases[] = {
      {"by a stranger", digests, stranger.signature_file(digests, true), key, "it was made with another key"},
      {"with the key's number", digests, impostor.signature_file(digests, true), key,
       "it is not the signature of this file"},
      {"of another file", digests, maker.signature_file("x", true), key,
       "it is not the signature of this file"},
      {"another's comment", digests, first_half(good) + second_half(maker.signature_file("x", true)), key,
       "its trusted comment was changed"},
      {"of no digests", "hello\n", maker.signature_file("hello\n", false), key, "not a list of digests"},
      {"something behind it", digests, good + "\n", key,
       "its fourth line is not the trusted comment's signature"},
      {"a key of no use", digests, good, "untrusted comment: x\n\n", "it is not a minisign public key"},
  };
  for (const auto& row : cases)
    EXPECT_EQ(fault_of(row.digests, row.signature, row.key), row.fault) << row.name;
}

TEST(FetchProof, DigestsAreReadToTheLetter) {
  const std::string line = "sha256 " + std::string(64, '0') + "\n";
  const auto text = [](const std::string& length, const std::string& chunk) {
    return "tarvolin-digests 1\nlength " + length + "\nchunk " + chunk + "\n";
  };
  const struct {
    const char* name;
    std::string text;
    bool good;
  } cases[] = {
      {"one byte", text("1", "16384") + line, true},
      {"one chunk", text("1048576", "1048576") + line, true},
      {"two chunks", text("16385", "16384") + line + line, true},
      {"a chunk less", text("16385", "16384") + line, false},
      {"a chunk more", text("16384", "16384") + line + line, false},
      {"small chunks", text("1", "8192") + line, false},
      {"large chunks", text("1", "2097152") + line, false},
      {"odd chunks", text("1", "16385") + line, false},
      {"no bytes", text("0", "16384"), false},
      {"zero in front", text("01", "16384") + line, false},
      {"a sign", text("+1", "16384") + line, false},
      {"a length that wraps", text("18446744073709551617", "16384") + line, false},
      {"too many chunks", text("1073741825", "16384"), false},
      {"another version", "tarvolin-digests 2\nlength 1\nchunk 16384\n" + line, false},
      {"capitals", text("1", "16384") + "sha256 " + std::string(64, 'A') + "\n", false},
      {"CR LF", text("1", "16384") + "sha256 " + std::string(64, '0') + "\r\n", false},
      {"a NUL", text("1\0"s, "16384") + line, false},
  };
  for (const auto& row : cases) {
    digest_list list;
    EXPECT_EQ(parse_digests(row.text, list) == nullptr, row.good) << row.name;
  }
  const std::pair<uint64_t, uint32_t> chunks[] = {{1, 65536},
                                                  {1ull << 32, 65536},
                                                  {(1ull << 32) + 1, 131072},
                                                  {1ull << 36, 1048576},
                                                  {(1ull << 36) + 1, 0}};
  for (const auto& [length, chunk] : chunks) EXPECT_EQ(chunk_for(length), chunk) << length;
}

// Feeds `content` in pieces of `piece` bytes; returns what came out before a chunk was wrong.
std::string passed(const digest_list& list, const std::string& content, size_t piece) {
  prover hand(&list);
  std::string out;
  for (size_t at = 0; at < content.size(); at += piece) {
    prover::state state = hand.take(std::string_view(content).substr(at, piece));
    for (size_t half = 0; state == prover::state::proven; state = hand.handed_on(half)) {
      half = (hand.ready().size() + 1) / 2;
      out += hand.ready().substr(0, half);
    }
    if (state == prover::state::wrong) break;
  }
  return out;
}

TEST(FetchProof, NoByteOfAWrongChunkLeaves) {
  const std::string content = noise(5 * kMinChunk + 100);
  const digest_list list = list_of(content, kMinChunk);
  for (const size_t piece : {1u, 1000u, 16383u, 16384u})
    EXPECT_TRUE(passed(list, content, piece) == content) << piece;
  for (size_t at = 0; at < content.size(); at += 509) {
    std::string changed = content;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    EXPECT_TRUE(passed(list, changed, 7777) == content.substr(0, at / kMinChunk * kMinChunk)) << at;
  }
}

}  // namespace
}  // namespace fetch
