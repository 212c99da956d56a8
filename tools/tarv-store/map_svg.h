// The picture of the store partitions as an SVG document, which suits light and dark surroundings.
#ifndef TARVOLIN_TOOLS_TARV_STORE_MAP_SVG_H
#define TARVOLIN_TOOLS_TARV_STORE_MAP_SVG_H

#include <string>
#include <vector>

#include "tools/tarv-store/block_use.h"

namespace tools::tarv_store {

[[nodiscard]] std::string map_as_svg(const store_view& store,
                                     const std::vector<std::vector<block_use>>& uses);

}  // namespace tools::tarv_store

#endif
