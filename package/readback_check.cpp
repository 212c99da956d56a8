#include "package/readback_check.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/retry.h"
#include "base/unique_fd.h"
#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"
#include "package/crc32.h"
#include "package/images.h"
#include "package/partition_crc.h"
#include "store/partition_groups.h"
#include "store/space.h"
#include "store/stream.h"

namespace {

constexpr const char* kFlashOp = "vexo_tarv_check_flash";

// Opens the store for reading behind its head block. Returns 0, or -1, logged.
int open_store() {
  ginfo->read_ctx = vexo_tarv_mtd_open_read(store_list[0]);
  if (ginfo->read_ctx == nullptr) return -1;
  if (mtd_seek_read_pos(*ginfo->read_ctx, ginfo->read_ctx->partition->erase_size) == 0) return 0;
  TARV_LOG(kFlashOp, "mtd_seek_read_pos error\n");
  return -1;
}

// Reads `size` bytes of the store; adds them to `crc` unless it is null. Returns 0, or -1, logged.
int read_store(uint32_t size, uint32_t* crc, uint32_t* offset) {
  uint8_t piece[kReadPiece];
  for (uint32_t left = size; left > 0;) {
    const uint32_t n = std::min(left, kReadPiece);
    if (vexo_tarv_mtd_read(piece, n, offset) != 0) {
      TARV_LOG(kFlashOp, "mtd_read_data error, errno: %s\n", strerror(errno));
      return -1;
    }
    if (crc != nullptr) *crc = crc32_update(*crc, piece, n);
    left -= n;
  }
  return 0;
}

int check_store_image(const package_entry& entry, uint32_t index, uint32_t* offset) {
  TARV_LOG(kFlashOp, "imagesize: %d\n", entry.size);
  uint32_t crc = kCrcStart;
  if (read_store(entry.size, &crc, offset) != 0) return -1;
  // The padding takes part in the stream but not in the CRC.
  if (read_store(store_padding(entry.size), nullptr, offset) != 0) return -1;
  return judge_image_crc(kFlashOp, entry, index, crc, "flash");
}

// CRC of the whole file, whatever its length. A read error ends it like the end of the file: the CRC tells.
uint32_t file_crc(int fd) {
  uint8_t piece[kReadPiece];
  uint32_t crc = kCrcStart;
  for (;;) {
    const ssize_t n = retry_interrupted([&] { return read(fd, piece, sizeof piece); });
    if (n <= 0) return crc;
    crc = crc32_update(crc, piece, static_cast<size_t>(n));
  }
}

int check_image_file(const package_entry& entry, uint32_t index) {
  constexpr const char* op = "vexo_tarv_check_file";
  char path[kImagePathCapacity];
  tarv_image_path(path, entry.file_name);
  const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) {
    TARV_LOG(op, "file open %s error\n", path);
    return -1;
  }
  return judge_image_crc(op, entry, index, file_crc(fd.get()), "file");
}

}  // namespace

int vexo_tarv_check_flash() {
  ginfo->read_ctx = nullptr;
  for (const uint32_t saved : ghead->ptsavesize) TARV_LOG(kFlashOp, "ptsavesize: %d\n", saved);
  uint32_t offset = 0;
  // Only once: the context becomes null when the store has been read to its end. To open it again would start
  // with the first image.
  bool opened = false;
  const int result = for_each_image_of(kStoreGroup, [&](const package_entry& entry, uint32_t index) {
    if (!std::exchange(opened, true) && open_store() != 0) return -1;
    return check_store_image(entry, index, &offset);
  });
  if (ginfo->read_ctx != nullptr) vexo_tarv_mtd_close_read(ginfo->read_ctx);
  ginfo->read_ctx = nullptr;
  return result;
}

int vexo_tarv_check_file() {
  return for_each_image_of(kFileGroup, check_image_file);
}

int vexo_tarv_check_recovery() {
  return for_each_image_of(kRecoveryGroup, [](const package_entry& entry, uint32_t index) {
    return check_partition_image("vexo_tarv_check_recovery", entry, index);
  });
}
