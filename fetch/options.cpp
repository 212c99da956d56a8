#include "fetch/options.h"

#include <getopt.h>
#include <sodium.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/version.h"
#include "fetch/exit_status.h"
#include "fetch/news.h"
#include "fetch/number.h"

namespace fetch {

namespace {

constexpr char kHelp[] =
    "Fetch a firmware package, prove it, and feed it to the updater.\n"
    "Usage: tarv-fetch [OPTION...] URL [-- TARVOLIN-OPTION...]\n\n"
    "Options:\n"
    "  -k,--key FILE          Public key, made by minisign; may be repeated\n"
    "  --unsigned             Take a package that nobody has signed\n"
    "  --digests FILE         Where the digests are, FILE or URL\n"
    "  --signature FILE       Where their signature is, FILE or URL\n"
    "  --check                Prove it all, start nothing\n"
    "  --updater FILE         Updater to start, default tarvolin\n"
    "  --give-up SECONDS      Without a new proven byte, default 3600\n"
    "  --limit-rate BYTES     A second, at most; K and M may follow\n"
    "  --ca FILE              Authorities to trust, PEM\n"
    "  --cert FILE            Certificate of this module, PEM\n"
    "  --cert-key FILE        Its key, PEM\n"
    "  --proxy URL            Instead of those in the environment\n"
    "  --spread SECONDS       Start at a moment of its own within them\n"
    "  --id TEXT              Who this is, default the machine id\n"
    "  --json                 Say it in JSON, on standard output\n"
    "  -h,--help              Print this help and exit\n"
    "  -V,--version           Print the version and exit\n\n"
    "Exit status: the updater's 0, 1, 253 to 255; 2 wrong usage; 3 refused;\n"
    "4 gave up; 5 the updater could not be started, or was killed\n";

enum long_only : int {
  kUnsigned = 256,
  kDigests,
  kSignature,
  kCheck,
  kUpdater,
  kGiveUp,
  kLimitRate,
  kCa,
  kCert,
  kCertKey,
  kProxy,
  kSpread,
  kId,
  kJson,
};

constexpr option kOptions[] = {
    {"key", required_argument, nullptr, 'k'},
    {"unsigned", no_argument, nullptr, kUnsigned},
    {"digests", required_argument, nullptr, kDigests},
    {"signature", required_argument, nullptr, kSignature},
    {"check", no_argument, nullptr, kCheck},
    {"updater", required_argument, nullptr, kUpdater},
    {"give-up", required_argument, nullptr, kGiveUp},
    {"limit-rate", required_argument, nullptr, kLimitRate},
    {"ca", required_argument, nullptr, kCa},
    {"cert", required_argument, nullptr, kCert},
    {"cert-key", required_argument, nullptr, kCertKey},
    {"proxy", required_argument, nullptr, kProxy},
    {"spread", required_argument, nullptr, kSpread},
    {"id", required_argument, nullptr, kId},
    {"json", no_argument, nullptr, kJson},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

constexpr uint64_t kMostSeconds = uint64_t{366} * 86400;
constexpr uint64_t kLeastRate = 1024;  // less would look like silence

int wrong_usage(const std::string& why) {
  fprintf(stderr, "tarv-fetch: %s\nTry \"tarv-fetch --help\".\n", printable(why).c_str());
  return kWrongUsage;
}

// Takes seconds, from `least` on. False when it is no such number.
bool take_seconds(int64_t& into, const char* text, uint64_t least) {
  const auto number = parse_number(text);
  if (!number || *number < least || *number > kMostSeconds) return false;
  into = static_cast<int64_t>(*number);
  return true;
}

bool take_rate(int64_t& into, std::string_view text) {
  uint64_t unit = 1;
  if (!text.empty() && (text.back() == 'K' || text.back() == 'M')) {
    unit = text.back() == 'K' ? 1024 : 1024 * 1024;
    text.remove_suffix(1);
  }
  const auto number = parse_number(text);
  if (!number || *number > UINT32_MAX || *number * unit < kLeastRate) return false;
  into = static_cast<int64_t>(*number * unit);
  return true;
}

std::string* text_of(options& given, int option) {
  switch (option) {
    case kDigests:
      return &given.digests;
    case kSignature:
      return &given.signature;
    case kUpdater:
      return &given.updater;
    case kCa:
      return &given.ca_file;
    case kCert:
      return &given.cert_file;
    case kCertKey:
      return &given.cert_key_file;
    case kProxy:
      return &given.network.proxy;
    default:
      return nullptr;
  }
}

// An option without a value, or with one that is no text. Returns false when the value is wrong.
bool take_other(options& given, int option) {
  switch (option) {
    case kUnsigned:
      return given.is_unsigned = true;
    case kCheck:
      return given.check = true;
    case kJson:
      return given.json = true;
    case kId:
      given.id = optarg;
      return true;
    case kGiveUp:
      return take_seconds(given.give_up_seconds, optarg, 1);
    case kSpread:
      return take_seconds(given.spread_seconds, optarg, 0);
    case kLimitRate:
      return take_rate(given.network.bytes_a_second, optarg);
    default:
      given.key_files.emplace_back(optarg);
      return true;
  }
}

// The updater gets its URL from here; another one would undo all that was proven.
bool names_a_url(const std::string& word) {
  if (word.compare(0, 3, "--u") == 0) return true;
  return word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find('u') != std::string::npos;
}

std::optional<int> check_together(const options& given) {
  if (!is_url(given.url)) return wrong_usage("the URL begins with neither http:// nor https://");
  if (given.is_unsigned && !given.key_files.empty())
    return wrong_usage("--key and --unsigned exclude each other");
  if (!given.is_unsigned && given.key_files.empty())
    return wrong_usage("give --key, or --unsigned for a package that nobody has signed");
  if (given.is_unsigned && (given.check || !given.digests.empty() || !given.signature.empty()))
    return wrong_usage("--check, --digests and --signature are for signed packages");
  if (given.cert_file.empty() != given.cert_key_file.empty())
    return wrong_usage("--cert and --cert-key go together");
  const auto& words = given.updater_options;
  if (std::any_of(words.begin(), words.end(), names_a_url))
    return wrong_usage("the updater's --url comes from tarv-fetch");
  return std::nullopt;
}

}  // namespace

std::optional<int> parse_options(int argc, char* argv[], options& given) {
  // What stands behind "--" is not ours to read.
  char** const all_end = argv + argc;
  char** const end = std::find_if(argv, all_end, [](const char* word) { return strcmp(word, "--") == 0; });
  if (end != all_end) given.updater_options.assign(end + 1, all_end);
  const auto count = static_cast<int>(end - argv);
  for (int c; (c = getopt_long(count, argv, ":k:hV", kOptions, nullptr)) != -1;) {
    if (c == 'h') return printf("%s", kHelp) < 0 ? kRefused : kDone;
    if (c == 'V') return printf("tarv-fetch %s\n", version_text) < 0 ? kRefused : kDone;
    const std::string word = argv[optind - 1];
    if (c == '?') return wrong_usage("unknown option: " + word);
    if (c == ':') return wrong_usage("option without its value: " + word);
    if (std::string* const text = text_of(given, c)) {
      *text = optarg;
      if (text->empty()) return wrong_usage("option with an empty value");
    } else if (!take_other(given, c)) {
      return wrong_usage("not a number that goes here: " + word);
    }
  }
  if (optind == count) return wrong_usage("the URL is missing");
  given.url = argv[optind];
  if (optind + 1 < count) return wrong_usage("more than one URL: " + std::string(argv[optind + 1]));
  return check_together(given);
}

int64_t own_moment(const std::string& id, int64_t spread_seconds) {
  uint64_t hash = 0;
  unsigned char bytes[crypto_generichash_blake2b_BYTES];
  crypto_generichash_blake2b(bytes, sizeof bytes, reinterpret_cast<const unsigned char*>(id.data()),
                             id.size(), nullptr, 0);
  for (size_t i = 0; i < sizeof hash; ++i) hash = hash << 8 | bytes[i];
  const auto span = static_cast<uint64_t>(spread_seconds) * 1000;
  return span == 0 ? 0 : static_cast<int64_t>(hash % span);
}

bool is_url(const std::string& text) {
  return strncasecmp(text.c_str(), "http://", 7) == 0 || strncasecmp(text.c_str(), "https://", 8) == 0;
}

std::string beside(const std::string& place, const char* suffix) {
  if (!is_url(place)) return place + suffix;
  const std::string url = place.substr(0, place.find('#'));
  const size_t query = std::min(url.find('?'), url.size());
  return url.substr(0, query) + suffix + url.substr(query);
}

}  // namespace fetch
