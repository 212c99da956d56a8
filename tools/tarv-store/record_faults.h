// What this updater never writes into an armed record.
#ifndef TARVOLIN_TOOLS_TARV_STORE_RECORD_FAULTS_H
#define TARVOLIN_TOOLS_TARV_STORE_RECORD_FAULTS_H

#include "tools/tarv-store/store_view.h"

namespace tools::tarv_store {

// Throws a refusal that names the first fault of the store's armed record. Without one, the bytes of every
// partition are filled in.
void judge_record(store_view& store);

}  // namespace tools::tarv_store

#endif
