// From flash or dumps to a store_view.
#ifndef TARVOLIN_TOOLS_TARV_STORE_OPEN_STORE_H
#define TARVOLIN_TOOLS_TARV_STORE_OPEN_STORE_H

#include "tools/tarv-store/store_view.h"

namespace tools::tarv_store {

// Looks at the bad-block marks and at the head record. Throws a refusal when there is no "userdata" or it
// cannot be examined; what is wrong with the record itself is in `fault`.
[[nodiscard]] store_view open_store();

}  // namespace tools::tarv_store

#endif
