// tarv-pkg check: tells whether the updater would take a package.
#ifndef TARVOLIN_TOOLS_TARV_PKG_CHECK_H
#define TARVOLIN_TOOLS_TARV_PKG_CHECK_H

#include <cstdint>
#include <string>

#include "package/format.h"

namespace tools::tarv_pkg {

// Looks at the head as the updater does, then at the data of every image, and prints one line when all is
// well. Throws a refusal that names the first fault. What only a module can tell (its project, its room for
// the images) is not looked at.
void check_package(const std::string& path);

// Parts of it, for other readers of packages. All throw a refusal that does not name the file.

// What has to be true for the images to be found in a file of `file_length` bytes.
void check_shape(const package_head& head, uint64_t file_length);
// That and the rest of the head. Needs crc32_init_table.
void check_head(const package_head& head, uint64_t file_length);
// `computed` is the CRC of the data of image `i`.
void check_data_crc(const package_head& head, uint32_t i, uint32_t computed);

}  // namespace tools::tarv_pkg

#endif
