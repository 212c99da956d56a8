// What makes sound dumps look like a damaged store: bad blocks that no list tells, and a wrong erase block.
// All is found by guessing, for people, and changes no verdict. Empty texts for flash, which knows both by
// itself.
#ifndef TARVOLIN_TOOLS_TARV_STORE_DUMP_HINTS_H
#define TARVOLIN_TOOLS_TARV_STORE_DUMP_HINTS_H

#include <string>

#include "tools/tarv-store/store_view.h"

namespace tools::tarv_store {

// For a store without a record where it should be: what to look at when there is one elsewhere.
[[nodiscard]] std::string hint_on_record(const store_view& store);

// For an armed store whose data are damaged: what to look at when a block of the stream is erased.
[[nodiscard]] std::string hint_on_data(const store_view& store);

}  // namespace tools::tarv_store

#endif
