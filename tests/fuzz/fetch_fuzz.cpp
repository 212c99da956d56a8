// What tarv-fetch reads of others. Input: what it is (a digit), then the text: 0 digests, 1 a signature, 2 a
// public key, 3 the header of an answer, after which a body arrives; 4 a request to the feeder, 5 a line of
// the kernel's table.
#include <sodium.h>

#include <algorithm>

#include "fetch/digests.h"
#include "fetch/feeder.h"
#include "fetch/job.h"
#include "fetch/minisign.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace fetch;

void read_digests(std::string_view text) {
  digest_list list;
  if (parse_digests(text, list) != nullptr) return;
  REQUIRE(digests_text(list) == text);
  REQUIRE((list.length + list.chunk - 1) / list.chunk == list.sha256.size());
}

void read_signature(std::string_view text) {
  signature given;
  if (parse_signature(text, given) != nullptr) return;
  REQUIRE(std::count(text.begin(), text.end(), '\n') == 4);
  REQUIRE(prove_signature(given, "x", {public_key{given.key_id, {}}}) != nullptr);
}

void read_key(std::string_view text) {
  public_key key;
  if (parse_public_key(text, key) == nullptr) REQUIRE(std::count(text.begin(), text.end(), '\n') == 2);
}

// Whatever the header says, what comes out begins as the package does, and never is more than it.
void read_header(std::string_view text) {
  static const std::string package(3 * kMinChunk + 9, 'p');
  static const digest_list list = [] {
    digest_list made = {package.size(), kMinChunk, {}};
    for (size_t at = 0; at < package.size(); at += kMinChunk)
      made.sha256.push_back(sha256_of(&package[at], std::min<size_t>(kMinChunk, package.size() - at)));
    return made;
  }();
  for (const digest_list* const digests : {&list, static_cast<const digest_list*>(nullptr)}) {
    package_download work("http://h/", digests);
    size_t out = 0;
    work.set_outlet([&](std::string_view bytes) { return out += bytes.size(), bytes.size(); });
    answer given;
    for (std::string_view rest = text; !rest.empty();) {
      const size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
      take_header_line(given, rest.substr(0, end));
      rest.remove_prefix(end);
    }
    REQUIRE(retry_after_seconds(given) >= 0 && validator_of(given).size() <= kMaxValidator);
    if (!work.take_header(given)) continue;
    bool goes_on = true;
    for (size_t at = 0; goes_on && at < package.size() && !work.complete(); at += 5000)
      goes_on = work.take_body(std::string_view(package).substr(at, 5000));
    REQUIRE(out == work.position() && out <= work.length().value_or(0));
    if (!work.complete()) REQUIRE(work.judge_end({}).what != verdict::usable);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int ready = sodium_init();
  if (ready < 0 || size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0]) {
    case '0':
      read_digests(text);
      break;
    case '1':
      read_signature(text);
      break;
    case '2':
      read_key(text);
      break;
    case '3':
      read_header(text);
      break;
    case '4':
      REQUIRE(asks_for(text, "/p") != true || text.rfind("GET /p HTTP/1.", 0) == 0);
      break;
    default:
      (void)owner_in(text.c_str(), {}, {});
      break;
  }
  return 0;
}
