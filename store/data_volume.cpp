#include "store/data_volume.h"

#include "base/shell.h"
#include "main/run/log.h"
#include "main/run/result_files.h"

namespace {

// By its device, as the mount table spells it. A command that cannot run prints nothing: then the volume
// counts as released (docs/integration.md).
int tarv_data_ubi_mounted() {
  return tarv_command_prints("mount | grep /dev/ubi2_0");
}

int tarv_ubi2_attached() {
  return tarv_command_prints("ubinfo | grep ubi2");
}

}  // namespace

int tarv_umount_ubi() {
  if (tarv_data_ubi_mounted() != 0) {
    // umount refuses as long as a single process has a file open there.
    tarv_run_command("fuser -m -k /data");
    tarv_run_command("umount /data");
    if (tarv_data_ubi_mounted() != 0) {
      TARV_LOG(__func__, "umount failed\n");
      tarv_write_fail_reason("umount /data failed\n");
      return -1;
    }
  }
  if (tarv_ubi2_attached() != 0) {
    // As long as UBI is attached, it moves blocks in the background, under the raw writes to come.
    tarv_run_command("ubidetach -d 2");
    if (tarv_ubi2_attached() != 0) {
      TARV_LOG(__func__, "detach failed\n");
      tarv_write_fail_reason("detach ubi2 failed\n");
      return -1;
    }
  }
  return 0;
}
