// tarv-pkg create: makes a package.
#ifndef TARVOLIN_TOOLS_TARV_PKG_CREATE_H
#define TARVOLIN_TOOLS_TARV_PKG_CREATE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools::tarv_pkg {

// A word of the user.
struct given_text {
  std::string text;
  std::string place;  // where it stands in a manifest, to begin a refusal with: "FILE:LINE: "

  bool is_given() const { return !text.empty() || !place.empty(); }
};

struct image_order {
  given_text partition;
  given_text path;  // file with the image's data
  given_text
      saved_name;  // name under which the updater saves a file-group image; not given: that of the file
};

struct package_order {
  given_text version;
  given_text major_version, minor_version;  // 0 when not given
  std::string manifest;                     // file that tells all this; empty: the command line does
  std::string output;                       // file; "-" is standard output
  std::vector<image_order> images;          // in package order
};

// The number that the whole of `word` is, in decimal; nothing when it does not fit.
[[nodiscard]] std::optional<uint16_t> version_number(const std::string& word);

// Writes the package; image data is streamed. Throws a refusal, with no file made or changed, when the
// updater would not take the package or a file cannot be read or written; then what standard output has got
// is cut off. Doubts go to standard error.
void create_package(const package_order& order);

}  // namespace tools::tarv_pkg

#endif
