#include "install/install_driver.h"

#include <unistd.h>

#include <algorithm>

#include "base/shell.h"
#include "install/image_installer.h"
#include "install/store_arming.h"
#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"
#include "package/images.h"

namespace {

constexpr char kModuleTool[] = "/usr/bin/odm_upgrader";

// Ends the stage well. Returns 0.
int finish(tarv_status status) {
  ginfo->status = status;
  tarv_write_status();
  return 0;
}

// Asks the module's own tool, if there is one, to restore a new "efs2bak". Its result does not change the
// outcome: the image is in its partition, proven.
void announce_efs2() {
  const image_table images;
  const bool present = std::any_of(images.begin(), images.end(), [](const package_entry& entry) {
    return field_text(entry.name) == "efs2bak";
  });
  if (!present || access(kModuleTool, F_OK) != 0) return;
  tarv_run_command("odm_upgrader set_efs2_restore");
  TARV_LOG("vexo_tarv_install_data", "odm_upgrader set_efs2_restore OK\n");
}

}  // namespace

int vexo_tarv_install_data() {
  if (group_of(ginfo->head.images[0]) == kRecoveryGroup) {
    TARV_LOG(__func__, "partition recovery, don't need install, return ok\n");
    return finish(TARV_STATUS_SUCCESS);
  }
  if (tarv_install_file() != 0) {
    TARV_LOG(__func__, "tarv_install_file error\n");
    return -1;
  }
  if (vexo_tarv_check_install_file() != 0) return -1;
  TARV_LOG(__func__, "tarv_install_file ok\n");
  announce_efs2();
  if (!has_image_of(kStoreGroup)) {
    tarv_write_int_file(PATH_TARV_PT_TYPE, kFileGroup);
    return finish(TARV_STATUS_SUCCESS);
  }
  return vexo_tarv_arm_store() == 0 ? finish(TARV_STATUS_RESTORE) : -1;
}
