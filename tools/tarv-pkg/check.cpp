#include "tools/tarv-pkg/check.h"

#include <cinttypes>
#include <cstdio>

#include "package/crc32.h"
#include "package/head_rules.h"
#include "tools/common/printable.h"
#include "tools/common/progress.h"
#include "tools/tarv-pkg/head_faults.h"
#include "tools/tarv-pkg/package_file.h"

namespace tools::tarv_pkg {

namespace {

void check_magic(const package_head& head) {
  if (head.magic == TARV_PACKAGE_MAGIC) return;
  throw refusal("the file is no package: its magic is " + in_hex(head.magic) + ", not " +
                in_hex(TARV_PACKAGE_MAGIC));
}

// A wrong length is looked for with the sum that does not wrap: the updater would wait for the rest in vain.
void check_length(const package_head& head, uint64_t file_length) {
  const uint64_t described = described_length(head);
  if (file_length != described) {
    throw refusal("the file has " + std::to_string(file_length) + " bytes, its head describes " +
                  std::to_string(described) + "; it is damaged or not complete");
  }
  check_total_length(file_length);
}

void check_head_size(const package_head& head) {
  if (head.meta_hdr_sz == kPackageHeadSize) return;
  throw refusal("the head gives its own size as " + std::to_string(head.meta_hdr_sz) + " bytes, not " +
                std::to_string(kPackageHeadSize));
}

void check_head_crc(const package_head& head) {
  const uint32_t computed = package_head_crc(head);
  if (computed == head.header_crc32) return;
  throw refusal("the head is damaged: header_crc32 is " + in_hex(head.header_crc32) + ", its bytes give " +
                in_hex(computed));
}

}  // namespace

// This and what follows in the order of the updater's head check, but for the CRC.
void check_shape(const package_head& head, uint64_t file_length) {
  check_magic(head);
  check_image_count(head.image_num);
  check_length(head, file_length);
}

void check_head(const package_head& head, uint64_t file_length) {
  check_magic(head);
  // The updater looks at it later. But what a damaged head says of images and lengths is no ground for
  // advice.
  check_head_crc(head);
  check_shape(head, file_length);
  check_head_size(head);
  check_entries(head);
}

void check_data_crc(const package_head& head, uint32_t i, uint32_t computed) {
  if (computed == head.images[i].crc) return;
  throw image_refusal(
      head, i,
      "the data are damaged: crc is " + in_hex(head.images[i].crc) + ", the data give " + in_hex(computed));
}

void check_package(const std::string& path) {
  crc32_init_table();
  input_file file(path);
  const package_head head = read_head(file);
  in_place(in_quotes(path) + ": ", [&] {
    check_head(head, file.size());
    progress done("checked", file.size() - kPackageHeadSize);
    for (uint32_t i = 0; i < head.image_num; ++i) {
      const auto count = [&](const void*, size_t length) { done.add(length); };
      check_data_crc(head, i, pass_data(file, head.images[i].size, count));
    }
  });
  printf("OK: version %s, images %u, bytes %" PRIu64 "\n", printable(field_text(head.img_version)).c_str(),
         head.image_num, file.size());
}

}  // namespace tools::tarv_pkg
