// Copies the file-group images from the run directory into their partitions and proves that they are there.
//
// Both take their images from ginfo->head, in table order, and return 0, or -1 at the first failure, logged.
#ifndef TARVOLIN_INSTALL_IMAGE_INSTALLER_H
#define TARVOLIN_INSTALL_IMAGE_INSTALLER_H

// Writes every file-group image into its partition; the rest of the partition is erased.
[[nodiscard]] int tarv_install_file();
// Reads every file-group image back from its partition and compares its CRC with the package's.
[[nodiscard]] int vexo_tarv_check_install_file();

#endif
