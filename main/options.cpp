#include "main/options.h"

#include <getopt.h>

#include <cstdio>
#include <cstring>

#include "base/number_text.h"
#include "main/run/record.h"

namespace {

constexpr char kStars[] = "***************************************************************";
static_assert(sizeof kStars - 1 == 63);
constexpr char kExampleUrl[] = "http://192.168.225.2:8080/package.img";
constexpr size_t kUsageNameLimit = 20;  // a longer program name gets no usage text for a missing URL

enum long_only : int { kVersion = 256, kRemoveBackup };

constexpr option kOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"type", required_argument, nullptr, 't'},
    {"url", required_argument, nullptr, 'u'},
    {"version", required_argument, nullptr, kVersion},
    {"debug", no_argument, nullptr, 'd'},
    {"rmrfnvbak", no_argument, nullptr, kRemoveBackup},
    {nullptr, 0, nullptr, 0},
};

// Copies an option's argument into its field. False, with a line on standard error, when it does not fit: a
// URL that is cut would download something else.
template <size_t N>
bool take_text(char (&field)[N], const char* name, const char* argument) {
  if (strlen(argument) >= N) {
    fprintf(stderr, "--%s takes at most %zu characters\n", name, N - 1);
    return false;
  }
  strcpy(field, argument);
  return true;
}

}  // namespace

tarv_start tarv_parse_options(int argc, char* argv[]) {
  if (argc < 1 || argv[0] == nullptr) {  // started by an exec without a name
    tarv_usage("tarvolin");
    return tarv_start::exit_failure;
  }
  tarv_start start = tarv_start::run_detached;
  // getopt_long keeps its place in a static variable; a second call in one process must start anew.
  optind = 1;
  for (int c; (c = getopt_long(argc, argv, "ht:u:d", kOptions, nullptr)) != -1;) {
    switch (c) {
      case 'h':
        tarv_usage(argv[0]);
        return tarv_start::exit_success;
      case 't':
        ginfo->type = parse_decimal(optarg).value_or(0);
        break;
      case 'u':
        if (!take_text(ginfo->url, "url", optarg)) return tarv_start::exit_failure;
        break;
      case kVersion:
        if (!take_text(ginfo->revid, "version", optarg)) return tarv_start::exit_failure;
        break;
      case 'd':
        start = tarv_start::run_in_foreground;
        break;
      case kRemoveBackup:
        ghead->rmrfnvbak = 1;
        break;
      default:
        tarv_usage(argv[0]);
        return tarv_start::exit_failure;
    }
  }
  if (ginfo->url[0] != '\0') return start;
  if (strlen(argv[0]) < kUsageNameLimit) tarv_usage(argv[0]);
  return tarv_start::exit_failure;
}

void tarv_usage(const char* program) {
  char text[1024];
  snprintf(text, sizeof text,
           "Usage: %s --type=<type> --url=<url>\n"
           "PARAMS:\n\n"
           "\t--type: 0: http, 1: ftp\n"
           "\t--url: download url\n"
           "\t\t%s\n"
           "e.g.: %s --type=0 --url=%s\n"
           "\n\t log output path:/tmp/tarvolin\n",
           program, kExampleUrl, program, kExampleUrl);
  printf("\n%s\n", kStars);
  printf("%s", text);
  printf("%s\n", kStars);
}
