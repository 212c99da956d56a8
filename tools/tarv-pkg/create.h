// tarv-pkg create: makes a package.
#ifndef TARVOLIN_TOOLS_TARV_PKG_CREATE_H
#define TARVOLIN_TOOLS_TARV_PKG_CREATE_H

#include <cstdint>
#include <string>
#include <vector>

struct image_order {
  std::string partition;
  std::string path;        // file with the image's data
  std::string saved_name;  // name under which the updater saves a file-group image
};

struct package_order {
  std::string version;
  std::string output;
  uint16_t major_version = 0;
  uint16_t minor_version = 0;
  std::vector<image_order> images;  // in package order
};

// Writes the package; image data is streamed. Throws a refusal, with no file made or changed, when the
// updater would not take the package or a file cannot be read or written. Doubts go to standard error.
void create_package(const package_order& order);

#endif
