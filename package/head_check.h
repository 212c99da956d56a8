// The head check: decides, before any image byte is written, whether a package is whole, fits this module and
// fits into the store.
#ifndef TARVOLIN_PACKAGE_HEAD_CHECK_H
#define TARVOLIN_PACKAGE_HEAD_CHECK_H

#include "package/format.h"

constexpr char PATH_REVID[] = "/tmp/revid";  // the module's version text, read when --version was not given

// Checks `head` against the announced length (ginfo->file_len), the module's version text and the store.
// Fills ginfo->revid when it is empty, the store capacities and ghead->need_recovery. Returns 0, or -1 at the
// first fault, with a log line and a failure reason.
[[nodiscard]] int vexo_tarv_check_head_content(const package_head& head);

#endif
