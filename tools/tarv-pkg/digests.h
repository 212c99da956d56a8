// tarv-pkg digests: the list that proves a package chunk by chunk, to be signed with minisign.
#ifndef TARVOLIN_TOOLS_TARV_PKG_DIGESTS_H
#define TARVOLIN_TOOLS_TARV_PKG_DIGESTS_H

#include <string>

namespace tools::tarv_pkg {

// Writes the digests of the package at `path` to `output`, or beside the package as PATH.digests when that is
// empty. Throws a refusal when the updater would not take the package, or a file cannot be read or written.
void write_digests(const std::string& path, const std::string& output);

}  // namespace tools::tarv_pkg

#endif
