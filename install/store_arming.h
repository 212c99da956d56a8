// Arms the store: completes the head record, so that the software outside restores what the store holds.
#ifndef TARVOLIN_INSTALL_STORE_ARMING_H
#define TARVOLIN_INSTALL_STORE_ARMING_H

// Fills ghead in its armed form from the package's store-group images, rewrites the first good block of the
// first store partition with it and makes sure that it stands there. Returns 0, or -1, logged.
[[nodiscard]] int vexo_tarv_arm_store();

#endif
