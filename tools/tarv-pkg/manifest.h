// A package described in a text file, for build systems. docs/package-format.md has the form.
#ifndef TARVOLIN_TOOLS_TARV_PKG_MANIFEST_H
#define TARVOLIN_TOOLS_TARV_PKG_MANIFEST_H

#include <string>

#include "package/format.h"
#include "tools/tarv-pkg/create.h"

namespace tools::tarv_pkg {

// The order that the manifest `path` gives; its output is left empty, and so is what the manifest leaves out.
// Throws a refusal that names the line when the text is none.
[[nodiscard]] package_order read_manifest(const std::string& path);

// The manifest of a package whose images are in files named after their partitions. Needs a head without
// faults. Throws a refusal when a text of it cannot stand in a manifest.
[[nodiscard]] std::string manifest_of(const package_head& head);

}  // namespace tools::tarv_pkg

#endif
