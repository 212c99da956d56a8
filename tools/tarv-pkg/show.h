// tarv-pkg show: prints what the head of a package says.
#ifndef TARVOLIN_TOOLS_TARV_PKG_SHOW_H
#define TARVOLIN_TOOLS_TARV_PKG_SHOW_H

#include <string>

namespace tools::tarv_pkg {

// Prints every field of the head and of the table entries in use, as it is: nothing is judged, so that a
// damaged package can be looked at. Throws a refusal when the file is shorter than a head.
void show_package(const std::string& path, bool as_json);

}  // namespace tools::tarv_pkg

#endif
