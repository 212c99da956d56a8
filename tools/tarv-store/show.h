// tarv-store show: what stands on flash, as it is.
#ifndef TARVOLIN_TOOLS_TARV_STORE_SHOW_H
#define TARVOLIN_TOOLS_TARV_STORE_SHOW_H

#include <cstdio>

namespace tools::tarv_store {

// Prints the head record, its images and what every block holds. Throws a refusal with the first fault of an
// armed store, once all is printed.
void show_store(FILE* out, bool as_json);

}  // namespace tools::tarv_store

#endif
