// The command line.
#ifndef TARVOLIN_FETCH_OPTIONS_H
#define TARVOLIN_FETCH_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fetch/minisign.h"
#include "fetch/network.h"

namespace fetch {

struct options {
  std::string url;
  std::vector<std::string> key_files;
  bool is_unsigned = false;
  std::string digests, signature;  // URL or file; empty: beside the package, beside the digests
  std::string ca_file, cert_file, cert_key_file;
  std::string updater = "tarvolin";
  std::vector<std::string> updater_options;
  int64_t give_up_seconds = 3600;
  int64_t spread_seconds = 0;
  std::optional<std::string> id;  // who this module is, for --spread
  bool check = false, json = false;
  network_settings network;
};

// Reads the command line. Returns nothing when the program is to go on, else its exit status: what was asked
// for, or is wrong, has been printed.
[[nodiscard]] std::optional<int> parse_options(int argc, char* argv[], options& given);

// The moment within `spread_seconds` that is this module's own, in milliseconds: the same for the same id,
// and spread evenly over all ids.
[[nodiscard]] int64_t own_moment(const std::string& id, int64_t spread_seconds);

// Whether this names something on a server, not a file.
[[nodiscard]] bool is_url(const std::string& text);

// The URL or file beside another: `suffix` goes to the end of its path.
[[nodiscard]] std::string beside(const std::string& place, const char* suffix);

}  // namespace fetch

#endif
