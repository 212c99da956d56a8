// tarv-fetch: brings a package over networks that break, proves it, and feeds it to the updater.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/descriptors.h"
#include "fetch/exit_status.h"
#include "fetch/files.h"
#include "fetch/news.h"
#include "fetch/options.h"
#include "fetch/session.h"

namespace {

constexpr size_t kMaxPem =
    size_t{4} * 1024 * 1024;  // bytes; all authorities of a distribution are some 200 KiB

// Reads the file that an option names into `into`. False, told, when it cannot be read.
bool take_file(const std::string& path, std::string& into) {
  if (path.empty()) return true;
  auto content = fetch::read_file(path, kMaxPem);
  if (!content || content->empty()) {
    fprintf(stderr, "tarv-fetch: cannot read %s: %s\n", fetch::printable(path).c_str(),
            content ? "it is empty" : strerror(errno));
    return false;
  }
  into = std::move(*content);
  return true;
}

// The data volume may go while we run, so that nothing may be needed from it later: not its files, and not
// the working directory.
bool leave_data_volume(fetch::options& given) {
  for (std::string* const path : {&given.updater, &given.digests, &given.signature}) {
    if (path->find('/') == std::string::npos && path == &given.updater) continue;
    if (path->empty() || fetch::is_url(*path)) continue;
    char* const whole = realpath(path->c_str(), nullptr);
    if (whole != nullptr) *path = whole;
    free(whole);
  }
  return take_file(given.ca_file, given.network.authorities) &&
         take_file(given.cert_file, given.network.certificate) &&
         take_file(given.cert_key_file, given.network.key);
}

}  // namespace

int main(int argc, char* argv[]) {
  occupy_standard_descriptors();
  setvbuf(stdout, nullptr, _IOLBF, 0);
  fetch::options given;
  if (const auto status = fetch::parse_options(argc, argv, given)) return *status;
  if (!leave_data_volume(given)) return fetch::kRefused;
  fetch::session session(given);
  return session.run();
}
