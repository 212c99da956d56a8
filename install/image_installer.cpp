#include "install/image_installer.h"

#include <fcntl.h>

#include "base/retry.h"
#include "base/unique_fd.h"
#include "main/run/log.h"
#include "main/run/result_files.h"
#include "mtd/block_io.h"
#include "package/images.h"
#include "package/partition_crc.h"
#include "store/stream.h"

namespace {

constexpr const char* kOp = "tarv_install_file";

// Copies the file to its end, whatever its length: the read-back notices a short one. Returns 0 or -1.
int copy_to_partition(int fd, mtd_write_ctx& ctx) {
  uint8_t piece[kReadPiece];
  for (;;) {
    const ssize_t n = retry_interrupted([&] { return read(fd, piece, sizeof piece); });
    if (n <= 0) return 0;
    if (mtd_write_data(ctx, piece, static_cast<uint32_t>(n)) != n) {
      TARV_LOG(kOp, "%s[%d] mtd_write_data error\n", kOp, __LINE__);
      return -1;
    }
  }
}

int install_image(const package_entry& entry, uint32_t index) {
  char path[kImagePathCapacity];
  tarv_image_path(path, entry.file_name);
  const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) {
    TARV_LOG(kOp, "file open %s error\n", path);
    return -1;
  }
  mtd_write_ctx* const ctx = vexo_tarv_mtd_open_write(entry.name);
  if (ctx == nullptr) {
    TARV_LOG(kOp, "can't write mtd partition %s\n", entry.name);
    return -1;
  }
  TARV_LOG(kOp, "installing image[%d] %s to %s\n", index, entry.name, ctx->partition->name);
  const int copied = copy_to_partition(fd.get(), *ctx);
  // Also after a failed copy: the context has to go, and the log tells of both failures.
  const int closed = vexo_tarv_mtd_close_write(ctx);
  if (closed != 0) TARV_LOG(kOp, "vexo_tarv_mtd_close_write failed\n");
  if (copied != 0 || closed != 0) return -1;
  TARV_LOG(kOp, "image[%d] %s install success\n", index, entry.name);
  return 0;
}

}  // namespace

int tarv_install_file() {
  return for_each_image_of(kFileGroup, install_image);
}

int vexo_tarv_check_install_file() {
  return for_each_image_of(kFileGroup, [](const package_entry& entry, uint32_t index) {
    return check_partition_image("vexo_tarv_check_install_file", entry, index);
  });
}
