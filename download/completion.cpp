#include "download/completion.h"

#include <cstdio>

#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"
#include "store/stream.h"

int tarv_complete_download(const char* op, bool keep_reason) {
  tarv_close_download_size();
  // Before the lengths are compared: the last block is written only now, and can still fail.
  const int closed = vexo_tarv_mtd_close_write(ginfo->write_ctx);
  ginfo->write_ctx = nullptr;
  if (closed != 0) {
    TARV_LOG(op, "%s failed\n", op);
    return -1;
  }
  TARV_LOG(op, "download last: %d/%d\n", ginfo->saved_total, ginfo->file_len);
  // Length 0: the connection ended before the response header was complete.
  if (ginfo->file_len != 0 && ginfo->saved_total >= ginfo->file_len) return 0;
  if (keep_reason && ginfo->file_len == 0) return -1;
  char reason[256];
  snprintf(reason, sizeof reason, "download stop: %d/%d\n", static_cast<int>(ginfo->saved_total),
           static_cast<int>(ginfo->file_len));
  tarv_write_fail_reason(reason);
  TARV_LOG(op, "%s", reason);
  return -1;
}
