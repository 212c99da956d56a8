// tarv-store map: a picture of the store partitions, one sign for each block.
#ifndef TARVOLIN_TOOLS_TARV_STORE_MAP_H
#define TARVOLIN_TOOLS_TARV_STORE_MAP_H

#include <cstdio>
#include <string>

namespace tools::tarv_store {

// Draws the picture in letters on `out`, as wide as its terminal (80 columns without one, never below 40 or
// above 200), in colour on a terminal only. With an `svg_path` also into that file. Throws a refusal with the
// first fault of an armed store, once all is drawn.
void map_store(FILE* out, const std::string& svg_path);

}  // namespace tools::tarv_store

#endif
