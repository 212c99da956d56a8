#include "package/intake.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "base/retry.h"
#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"
#include "mtd/block_io.h"
#include "package/head_check.h"
#include "package/head_rules.h"
#include "package/images.h"
#include "store/data_volume.h"
#include "store/head_block.h"
#include "store/partition_groups.h"
#include "store/space.h"
#include "store/stream.h"

namespace {

constexpr const char* kOp = "vexo_tarv_save_data";

// The end of every failure after the head check: leaves no destination open. Returns -1.
int fail() {
  if (vexo_tarv_mtd_close_write(ginfo->write_ctx) != 0) TARV_LOG(kOp, "vexo_tarv_mtd_close_write failed\n");
  ginfo->write_ctx = nullptr;
  if (ginfo->wfd >= 0) close(ginfo->wfd);
  ginfo->wfd = -1;
  return -1;
}

int open_appending(const char* path) {
  return open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
}

// Keeps a copy of the head in the run directory. A copy that cannot be opened is left out; one that cannot be
// written whole is a failure, because readers would take it for the head. Returns 0 or -1.
int copy_head() {
  const int fd = open_appending(PATH_TARV_HEAD);
  if (fd < 0) return 0;
  // Descriptor 0 would mean that standard input was closed, and the file would be in its place.
  if (fd == 0) {
    TARV_LOG(kOp, "open PATH_TARV_HEAD 0\n");
    close(fd);
    return -1;
  }
  const ssize_t written = retry_interrupted([&] { return write(fd, &ginfo->head, sizeof ginfo->head); });
  const bool closed = close(fd) == 0;
  return written == sizeof ginfo->head && closed ? 0 : -1;
}

// Counts saved package bytes and publishes them.
void count_saved(uint32_t len) {
  ginfo->saved_total += len;
  tarv_set_download_size(static_cast<int32_t>(ginfo->saved_total));
}

// Makes image `index` the current one.
void select_image(int32_t index) {
  ginfo->cur_image = index;
  ginfo->cur_entry = &ginfo->head.images[index];
  ginfo->cur_pt_type = group_of(*ginfo->cur_entry);
  ginfo->image_saved[index] = 0;
}

// Refuses a recovery package that holds anything else. Returns 0 or -1.
int check_recovery_package() {
  const std::optional<uint32_t> foreign = find_foreign_image(ginfo->head);
  if (!foreign) return 0;
  TARV_LOG(kOp, "in recovery mode unsupport type: %s\n", ginfo->head.images[*foreign].name);
  return -1;
}

// The block of the head record takes no record, so no store can begin. Nothing behind that block has changed:
// the reason says whether an earlier store is still armed. Returns -1.
int refuse_head_block() {
  TARV_LOG(kOp, "vexo_tarv_init_head_flash error\n");
  store_head_record found = {};
  if (tarv_read_head_block(found) >= 0 && found.magic == TARV_RESTORE_MAGIC) {
    tarv_write_fail_reason(
        "userdata takes no head record; the earlier armed store still stands; /data is unmounted\n");
  } else {
    tarv_write_fail_reason("userdata takes no head record; no armed store was found; /data is unmounted\n");
  }
  return -1;
}

// Releases the data volume, writes the storing head record and opens the store behind it. Returns 0 or -1.
int prepare_store() {
  if (tarv_umount_ubi() != 0) {
    TARV_LOG(kOp, "umount ubi err\n");
    return -1;
  }
  TARV_LOG(kOp, "tarv_umount_ubi userdata success\n");
  // The storing form: while it stands, nobody restores what the partitions hold.
  ghead->magic = TARV_STORING_MAGIC;
  ghead->status = ginfo->status;
  ghead->valid_pt = 0;
  if (vexo_tarv_init_head_flash(*ghead) != 0) return refuse_head_block();

  ginfo->write_ctx = vexo_tarv_mtd_open_write(store_list[0]);
  if (ginfo->write_ctx == nullptr) {
    TARV_LOG(kOp, "can't write mtd partition %s\n", store_list[0]);
    return -1;
  }
  if (mtd_seek_write_pos(*ginfo->write_ctx, ginfo->write_ctx->partition->erase_size) != 0) {
    TARV_LOG(kOp, "%s[%d] mtd_seek_write_pos error\n", kOp, __LINE__);
    return fail();
  }
  // Arming compares it: a head block that was marked bad meanwhile would move the record over data.
  ginfo->store_data_start = mtd_current_pos(ginfo->write_ctx->fd);
  if (ginfo->store_data_start < 0) {
    TARV_LOG(kOp, "mtd_erase_blocks: couldn't SEEK_CUR: %s\n", strerror(errno));
    return fail();
  }
  return 0;
}

int open_image_file() {
  char path[kImagePathCapacity];
  tarv_image_path(path, ginfo->cur_entry->file_name);
  ginfo->wfd = open_appending(path);
  if (ginfo->wfd >= 0) return 0;
  if (ginfo->cur_image == 0) {
    TARV_LOG(kOp, "open %s failed\n", path);
  } else {
    TARV_LOG(kOp, "ginfo->wfd error: %d\n", ginfo->wfd);
  }
  return -1;
}

int open_recovery_partition() {
  ginfo->write_ctx = vexo_tarv_mtd_open_write(ginfo->cur_entry->name);
  if (ginfo->write_ctx == nullptr) {
    TARV_LOG(kOp, "can't write mtd partition %s\n", ginfo->cur_entry->name);
    return -1;
  }
  if (mtd_erase_blocks(*ginfo->write_ctx, -1) == -1) {
    TARV_LOG(kOp, "%s[%d] error erasing blocks\n", kOp, __LINE__);
    return -1;
  }
  return 0;
}

// Opens what the current image is written to; the store is open already. Returns 0 or -1.
int prepare_destination() {
  switch (ginfo->cur_pt_type) {
    case kFileGroup:
      return open_image_file();
    case kRecoveryGroup:
      return open_recovery_partition();
    default:
      return 0;
  }
}

// Starts with image 0. A package without images has none, whatever its first entry names: nothing is opened
// for it.
int start_images() {
  if (has_unknown_first_entry(ginfo->head)) {
    TARV_LOG(kOp, "unsupport file partition: %.32s, error\n", ginfo->head.images[0].name);
    return -1;
  }
  // Even without images: the group of entry 0 decides what kind of package this is.
  select_image(0);
  if (ginfo->cur_pt_type == kRecoveryGroup) {
    if (check_recovery_package() != 0) return fail();
    tarv_write_int_file(PATH_TARV_PT_TYPE, kRecoveryGroup);
  }
  if (ginfo->head.image_num == 0) return 0;
  if (has_image_of(kStoreGroup) && prepare_store() != 0) return -1;
  return prepare_destination() == 0 ? 0 : fail();
}

// What the complete head sets in motion. Returns 0 or -1.
int accept_head() {
  if (vexo_tarv_check_head_content(ginfo->head) != 0) {
    TARV_LOG(kOp, "vexo_tarv_check_head_content error\n");
    return -1;
  }
  if (copy_head() != 0) return -1;
  count_saved(kPackageHeadSize);
  return start_images();
}

int32_t save_head(const uint8_t* buf, int32_t len) {
  const int32_t need = static_cast<int32_t>(kPackageHeadSize) - ginfo->head_bytes;
  const int32_t taken = std::min(len, need);
  memcpy(reinterpret_cast<uint8_t*>(&ginfo->head) + ginfo->head_bytes, buf, static_cast<size_t>(taken));
  ginfo->head_bytes += taken;
  if (taken < need) return 0;
  ginfo->head_done = 1;
  if (accept_head() != 0) return -1;
  // The piece may hold the first bytes of the first image, or all of a small package.
  return vexo_tarv_save_data(buf + taken, len - taken) == 0 ? 0 : fail();
}

// Writes bytes of the current image to its destination. Returns 0 or -1.
int write_image(const uint8_t* buf, int32_t len) {
  if (ginfo->cur_pt_type == kStoreGroup) {
    if (vexo_tarv_mtd_append(buf, len) == 0) return 0;
    TARV_LOG(kOp, "vexo_tarv_mtd_append error\n");
    return -1;
  }
  if (ginfo->cur_pt_type == kFileGroup) {
    // A short write means a full /tmp. It is not tried again: the rest would not fit either.
    const ssize_t n = retry_interrupted([&] { return write(ginfo->wfd, buf, static_cast<size_t>(len)); });
    if (n == len) return 0;
    TARV_LOG(kOp, "[%d]vexo_tarv_file_append error, %d/%d\n", __LINE__, static_cast<int>(n), len);
    return -1;
  }
  if (mtd_write_data(*ginfo->write_ctx, buf, static_cast<uint32_t>(len)) == len) return 0;
  TARV_LOG(kOp, "write partition %s data error\n", ginfo->write_ctx->partition->name);
  return -1;
}

// Fills the store up to the next multiple of its alignment behind an image.
int pad_store_image() {
  static const uint8_t zeros[kStoreAlignment] = {};
  const uint32_t pad = store_padding(ginfo->cur_entry->size);
  if (pad == 0) return 0;
  TARV_LOG(kOp, "align_left: %d\n", pad);
  if (vexo_tarv_mtd_append(zeros, static_cast<int32_t>(pad)) == 0) return 0;
  TARV_LOG(kOp, "vexo_tarv_mtd_append error\n");
  return -1;
}

int close_image_file() {
  const int result = close(ginfo->wfd);
  if (result != 0) TARV_LOG(kOp, "close %s: %s\n", ginfo->cur_entry->file_name, strerror(errno));
  ginfo->wfd = -1;
  return result;
}

int close_recovery_partition() {
  const int result = vexo_tarv_mtd_close_write(ginfo->write_ctx);
  ginfo->write_ctx = nullptr;
  if (result != 0) TARV_LOG(kOp, "vexo_tarv_mtd_close_write failed\n");
  return result;
}

// Finishes the current image's destination, all its bytes written. Returns 0 or -1.
int finish_image() {
  if (ginfo->cur_pt_type == kStoreGroup) return pad_store_image();
  TARV_LOG(kOp, "write %s: %d/%d\n", ginfo->cur_entry->name, ginfo->cur_entry->size, ginfo->file_len);
  return ginfo->cur_pt_type == kFileGroup ? close_image_file() : close_recovery_partition();
}

// Moves on to the next image, which `len` bytes at `buf` begin. Returns 0 or -1.
int32_t start_next_image(const uint8_t* buf, int32_t len) {
  ++ginfo->cur_image;
  if (ginfo->cur_image == ginfo->head.image_num) {
    if (len == 0) {
      TARV_LOG(kOp, "no more image, return\n");
      return 0;
    }
    TARV_LOG(kOp, "error image num\n");
    return -1;
  }
  select_image(ginfo->cur_image);
  if (prepare_destination() != 0) return -1;
  // One piece may hold the ends of several small images.
  return vexo_tarv_save_data(buf, len);
}

int32_t save_image(const uint8_t* buf, int32_t len) {
  if (ginfo->cur_image >= ginfo->head.image_num) {
    TARV_LOG(kOp, "error image num\n");
    return fail();
  }
  uint32_t& saved = ginfo->image_saved[ginfo->cur_image];
  const bool completes = saved + static_cast<uint32_t>(len) >= ginfo->cur_entry->size;
  const auto part = completes ? static_cast<int32_t>(ginfo->cur_entry->size - saved) : len;
  if (write_image(buf, part) != 0) return fail();
  if (completes && finish_image() != 0) return fail();
  saved += static_cast<uint32_t>(part);
  count_saved(static_cast<uint32_t>(part));
  if (!completes) return 0;
  return start_next_image(buf + part, len - part) == 0 ? 0 : fail();
}

}  // namespace

int32_t vexo_tarv_save_data(const void* buf, int32_t len) {
  if (len == 0) return 0;
  if (buf == nullptr || len < 0) return -1;
  const auto* const bytes = static_cast<const uint8_t*>(buf);
  return ginfo->head_done == 0 ? save_head(bytes, len) : save_image(bytes, len);
}
