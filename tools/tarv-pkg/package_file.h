// A package that exists already, opened for looking at it.
#ifndef TARVOLIN_TOOLS_TARV_PKG_PACKAGE_FILE_H
#define TARVOLIN_TOOLS_TARV_PKG_PACKAGE_FILE_H

#include <algorithm>
#include <cstdint>

#include "package/format.h"
#include "tools/tarv-pkg/input_file.h"

namespace tools::tarv_pkg {

// The head at the start of `file`, as it is. Throws a refusal when the file is shorter than a head.
[[nodiscard]] package_head read_head(input_file& file);

// Table entries that can be looked at: `image_num` of a damaged head may be past the table's end.
inline uint32_t entries_in_table(const package_head& head) {
  return std::min<uint32_t>(head.image_num, kMaxImages);
}

// Bytes of the package that these entries describe. Unlike the updater's own sum this one does not wrap.
[[nodiscard]] uint64_t described_length(const package_head& head);

}  // namespace tools::tarv_pkg

#endif
