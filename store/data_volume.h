// Frees the first store partition from the running module: its UBI volume is unmounted from /data and its UBI
// device detached, with the module's own commands.
#ifndef TARVOLIN_STORE_DATA_VOLUME_H
#define TARVOLIN_STORE_DATA_VOLUME_H

// Ends the processes that use /data, unmounts it and detaches UBI device 2; what is already gone is left
// alone. Judged by what the mount table and ubinfo show afterwards, not by exit codes. Returns 0, or -1 with
// a log line and a failure reason. Nothing is mounted or attached again after a failure.
[[nodiscard]] int tarv_umount_ubi();

#endif
