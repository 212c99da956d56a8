// tarv-store dump: copies the store partitions into a folder, from which --dumps reads them elsewhere.
#ifndef TARVOLIN_TOOLS_TARV_STORE_DUMP_H
#define TARVOLIN_TOOLS_TARV_STORE_DUMP_H

#include <cstdio>
#include <string>

namespace tools::tarv_store {

// Makes NAME.bin and NAME.bad in `folder` for every store partition that is there, and the file "sizes"
// (tools/tarv-store/dumps.h has their form), whatever the store holds. A block that is bad or does not read
// cleanly has erased bytes in NAME.bin and its number in NAME.bad. Prints one line for each partition. The
// folder may not be there yet; throws a refusal when it holds one of these files, and when something cannot
// be read or written; then names the dumps that are whole.
void dump_store(FILE* out, const std::string& folder);

}  // namespace tools::tarv_store

#endif
