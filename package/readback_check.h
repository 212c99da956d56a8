// The check stage's work: reads every image back from where the intake put it and compares its CRC with the
// package's.
//
// All three take their images from ginfo->head, in table order, and return 0, or -1 at the first fault,
// logged.
#ifndef TARVOLIN_PACKAGE_READBACK_CHECK_H
#define TARVOLIN_PACKAGE_READBACK_CHECK_H

// Store-group images, from the store. Leaves no store context open.
[[nodiscard]] int vexo_tarv_check_flash();
// File-group images, from their whole files in the run directory.
[[nodiscard]] int vexo_tarv_check_file();
// Recovery-group images, from their partitions.
[[nodiscard]] int vexo_tarv_check_recovery();

#endif
