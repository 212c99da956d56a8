#include "main/stages.h"

#include <unistd.h>

#include <cstring>
#include <ctime>

#include "download/curl_client.h"
#include "download/socket_client.h"
#include "install/install_driver.h"
#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"
#include "package/readback_check.h"

namespace {

struct stage {
  const char* name;
  tarv_status status;
  int (*work)();
  const char* time_file;
};

int download_package() {
  // Everything else goes to the plain client, which knows no other scheme.
  constexpr char secure[] = "https://";
  const bool is_secure = strncmp(ginfo->url, secure, sizeof secure - 1) == 0;
  return is_secure ? vexo_tarv_http_https_download() : vexo_tarv_http_download();
}

int check_package() {
  for (const auto check : {vexo_tarv_check_flash, vexo_tarv_check_file, vexo_tarv_check_recovery}) {
    if (check() < 0) return -1;
  }
  return 0;
}

int run_stage(const stage& current) {
  TARV_LOG(current.name, ">> %s, pid: %d\n", current.name, getpid());
  ginfo->status = current.status;
  tarv_write_status();
  if (current.work() < 0) {
    ginfo->status = TARV_STATUS_FAILED;
    tarv_write_status();
    return -1;
  }
  const auto now = static_cast<uint32_t>(time(nullptr));
  // Published times have 32 bits; on 32-bit modules time_t may have no more either.
  const auto elapsed = static_cast<int32_t>(now - ginfo->stage_time);
  ginfo->stage_time = now;
  TARV_LOG(current.name, "%s consume %ds\n\n", current.name, elapsed);
  tarv_write_int_file(current.time_file, elapsed);
  return 0;
}

}  // namespace

int vexo_tarv_download() {
  return run_stage({__func__, TARV_STATUS_DOWNLOAD, download_package, PATH_TARV_DOWNLOAD_TIME});
}

int vexo_tarv_check() {
  return run_stage({__func__, TARV_STATUS_CHECK, check_package, PATH_TARV_CHECK_TIME});
}

int vexo_tarv_install() {
  return run_stage({__func__, TARV_STATUS_INSTALL, vexo_tarv_install_data, PATH_TARV_INSTALL_TIME});
}
