// tarv-pkg diff: tells what differs between two packages.
#ifndef TARVOLIN_TOOLS_TARV_PKG_DIFF_H
#define TARVOLIN_TOOLS_TARV_PKG_DIFF_H

#include <string>

namespace tools::tarv_pkg {

// Prints what differs and returns true when anything does: false means that the files are the same byte for
// byte. Images are compared by their data. Throws a refusal when one of the files is not shaped as a package.
[[nodiscard]] bool diff_packages(const std::string& a, const std::string& b, bool as_json);

}  // namespace tools::tarv_pkg

#endif
