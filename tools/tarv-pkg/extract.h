// tarv-pkg extract: takes a package apart.
#ifndef TARVOLIN_TOOLS_TARV_PKG_EXTRACT_H
#define TARVOLIN_TOOLS_TARV_PKG_EXTRACT_H

#include <string>

namespace tools::tarv_pkg {

// Writes every image of the package `path` into `folder`, which may not be there yet, as a file named after
// its partition, and last a file "manifest" from which tarv-pkg create makes the same package. An image's
// file appears only when its CRC is right. Throws a refusal when the package has a fault.
void extract_package(const std::string& path, const std::string& folder);

}  // namespace tools::tarv_pkg

#endif
