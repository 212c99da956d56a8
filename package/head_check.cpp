#include "package/head_check.h"

#include <cstdarg>
#include <cstdio>

#include "main/run/log.h"
#include "main/run/record.h"
#include "main/run/result_files.h"
#include "package/crc32.h"
#include "package/head_rules.h"
#include "store/space.h"

namespace {

constexpr const char* kOp = "vexo_tarv_check_head_content";

// Writes the failure reason. Returns false, the answer of the check that found the fault.
[[gnu::format(printf, 1, 2)]] bool give_reason(const char* format, ...) {
  char reason[256];
  va_list args;
  va_start(args, format);
  vsnprintf(reason, sizeof reason, format, args);
  va_end(args);
  tarv_write_fail_reason(reason);
  return false;
}

// The texts of faults are interfaces, spelled so on purpose: see docs/architecture.md.
//
// A fault whose log line and failure reason are the same text.
#define REFUSE(...) (TARV_LOG(kOp, __VA_ARGS__), give_reason(__VA_ARGS__))

// Texts of the head are printed with their field's width, since they may lack a NUL.
static_assert(sizeof package_head::img_version == 64 && sizeof package_entry::name == 32 &&
                  sizeof package_entry::file_name == 68,
              "widths used in the formats below");

void log_head(const package_head& head) {
  TARV_LOG(kOp, "package len: %d\n", ginfo->file_len);
  TARV_LOG(kOp, "head content:\n");
  TARV_LOG(kOp, "magic: %x\n", head.magic);
  TARV_LOG(kOp, "major_version: %x\n", head.major_version);
  TARV_LOG(kOp, "minor_version: %x\n", head.minor_version);
  TARV_LOG(kOp, "img_version: %.64s\n", head.img_version);
  TARV_LOG(kOp, "meta_hdr_sz: %d\n", head.meta_hdr_sz);
  TARV_LOG(kOp, "image_num: %d\n", head.image_num);
  TARV_LOG(kOp, "header_crc32: %x\n\n", head.header_crc32);
}

bool check_magic(const package_head& head) {
  return head.magic == TARV_PACKAGE_MAGIC || REFUSE("head magic not match.\n");
}

// This check comes before all that read the image table: they trust the count.
bool check_image_num(const package_head& head) {
  return head.image_num <= kMaxImages || REFUSE("image num error: %d\n", head.image_num);
}

bool check_length(const package_head& head) {
  const uint32_t expected = package_length(head);
  return ginfo->file_len == expected || REFUSE("package len error: %u/%u\n", ginfo->file_len, expected);
}

bool check_revid(const package_head&) {
  // The result does not matter: an empty text is refused whatever made it empty.
  if (ginfo->revid[0] == '\0') (void)!read_file_text(PATH_REVID, ginfo->revid);
  return ginfo->revid[0] != '\0' || REFUSE("Can not get revid.\n");
}

bool check_project(const package_head& head) {
  const int current = vexo_tarv_get_project_type(ginfo->revid);
  const int offered = vexo_tarv_get_project_type(head.img_version);
  TARV_LOG(kOp, "Project type cur: %s[%d], pkg: %.64s[%d]\n", ginfo->revid, current, head.img_version,
           offered);
  return current == offered ||
         REFUSE("Project type not match cur: %s, pkg: %.64s\n", ginfo->revid, head.img_version);
}

bool check_head_size(const package_head& head) {
  return head.meta_hdr_sz == kPackageHeadSize || REFUSE("head meta_hdr_sz not match.\n");
}

bool check_crc(const package_head& head) {
  // Here, where every run first needs a CRC; all later ones rely on it.
  crc32_init_table();
  const uint32_t computed = package_head_crc(head);
  if (computed == head.header_crc32) return true;
  TARV_LOG(kOp, "header_crc32 error, head crc: %x, calculate crc: %x\n", head.header_crc32, computed);
  return give_reason("header_crc32 error\n");
}

bool check_entry(const package_head& head, uint32_t i) {
  const package_entry& entry = head.images[i];
  switch (examine_entry(head, i)) {
    case entry_fault::unsupported_partition:
      return REFUSE("unsupport upgrade partition type: %.32s\n", entry.name);
    case entry_fault::misplaced_recovery:
      return REFUSE("unsupport recovery image in package: %.32s\n", entry.name);
    case entry_fault::file_name_empty:
    case entry_fault::file_name_unterminated:
    case entry_fault::file_name_hidden:
    case entry_fault::file_name_with_folder:
    case entry_fault::file_name_of_run:
    case entry_fault::file_name_taken:
      return REFUSE("image file name error: %.68s\n", entry.file_name);
    case entry_fault::none:
      return true;
  }
  return false;
}

// Adds up in `demand` the bytes that the package wants from the store.
bool check_entries(const package_head& head, uint32_t& demand) {
  for (uint32_t i = 0; i < head.image_num; ++i) {
    if (!check_entry(head, i)) return false;
    const package_entry& entry = head.images[i];
    if (group_of(entry) != kStoreGroup) continue;
    TARV_LOG(kOp, "flash image: %s, size: %d\n", entry.name, entry.size);
    // Sizes without their padding: a package that fits only so fails when the store is full.
    demand += entry.size;
  }
  if (examine_table(head) != table_fault::too_many_store_images) return true;
  return REFUSE("too many store images: %d\n", count_store_images(head));
}

bool check_images(const package_head& head) {
  const uint32_t room = vexo_tarv_get_partition_valid_size();
  uint32_t demand = 0;
  if (!check_entries(head, demand)) return false;
  if (demand > room) {
    TARV_LOG(kOp, "No enough size for this file store. file_len: %d, valid_size: %d\n", demand, room);
    return give_reason("No enough size, %d/%d\n", demand, room);
  }
  if (ginfo->store_capacity[0] < demand) ghead->need_recovery = 1;
  TARV_LOG(kOp, "vexo_tarv_check_head_content success, size: %.1f/%.1fMB need_recovery[%d]\n\n",
           static_cast<double>(demand) / 1048576, static_cast<double>(room) / 1048576, ghead->need_recovery);
  return true;
}

// The order is an interface: only the first fault is reported, and docs/package-format.md lists them so.
constexpr bool (*kChecks[])(const package_head&) = {
    check_magic,   check_image_num, check_length, check_revid,
    check_project, check_head_size, check_crc,    check_images,
};

}  // namespace

int vexo_tarv_check_head_content(const package_head& head) {
  log_head(head);
  for (const auto check : kChecks) {
    if (!check(head)) return -1;
  }
  return 0;
}
