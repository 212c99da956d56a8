// The install stage's work: file-group images into their partitions, and the armed head record for what the
// store holds.
#ifndef TARVOLIN_INSTALL_INSTALL_DRIVER_H
#define TARVOLIN_INSTALL_INSTALL_DRIVER_H

// Installs the verified package. On success sets and publishes the final status: TARV_STATUS_RESTORE when
// images wait in the store, else TARV_STATUS_SUCCESS. Returns 0, or -1, logged, with the status left as it
// was.
[[nodiscard]] int vexo_tarv_install_data();

#endif
