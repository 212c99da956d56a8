#include "tools/tarv-pkg/show.h"

#include <cinttypes>
#include <cstdio>

#include "package/head_rules.h"
#include "tools/common/printable.h"
#include "tools/tarv-pkg/package_file.h"
#include "tools/tarv-pkg/partition_names.h"

namespace tools::tarv_pkg {

namespace {

// Bounded by its field: the text of a damaged head may lack its NUL.
int project_type(const package_head& head) {
  const std::string version(field_text(head.img_version));
  return vexo_tarv_get_project_type(version.c_str());
}

// The number of images is not to be trusted past the table's end, and no length follows from it then.
bool has_length(const package_head& head) {
  return head.image_num <= kMaxImages;
}

// With the names that the fields have in the format, so that a reader finds them in its description.
void show_text(const package_head& head, uint64_t file_length) {
  printf("magic           0x%08" PRIx32 "%s\n", head.magic,
         head.magic == TARV_PACKAGE_MAGIC ? "" : " (not that of a package)");
  printf("major_version   %u\n", head.major_version);
  printf("minor_version   %u\n", head.minor_version);
  printf("img_version     %s\n", printable(field_text(head.img_version)).c_str());
  printf("project type    %d%s\n", project_type(head), project_type(head) < 0 ? " (unknown id)" : "");
  printf("meta_hdr_sz     %u\n", head.meta_hdr_sz);
  printf("image_num       %u%s\n", head.image_num, has_length(head) ? "" : " (the table has room for 32)");
  printf("header_crc32    0x%08" PRIx32 "\n", head.header_crc32);
  if (has_length(head)) printf("package length  %" PRIu64 "\n", described_length(head));
  printf("file length     %" PRIu64 "\n", file_length);
  for (uint32_t i = 0; i < entries_in_table(head); ++i) {
    const package_entry& entry = head.images[i];
    printf("image %u\n", i);
    printf("  name          %s\n", printable(field_text(entry.name)).c_str());
    printf("  group         %s\n", group_name(group_of(entry)));
    printf("  file_name     %s\n", printable(field_text(entry.file_name)).c_str());
    printf("  size          %" PRIu32 "\n", entry.size);
    printf("  crc           0x%08" PRIx32 "\n", entry.crc);
  }
}

void show_json_entry(const package_entry& entry) {
  printf("{\"name\": %s, ", json_string(field_text(entry.name)).c_str());
  printf("\"group\": \"%s\", ", group_name(group_of(entry)));
  printf("\"file_name\": %s, ", json_string(field_text(entry.file_name)).c_str());
  printf("\"size\": %" PRIu32 ", \"crc\": %" PRIu32 "}", entry.size, entry.crc);
}

// By hand: the only thing that can go wrong is in the texts, and those are escaped in one place.
void show_json(const package_head& head, uint64_t file_length) {
  const std::string length = has_length(head) ? std::to_string(described_length(head)) : "null";
  printf("{\n  \"magic\": %" PRIu32 ",\n", head.magic);
  printf("  \"major_version\": %u,\n", head.major_version);
  printf("  \"minor_version\": %u,\n", head.minor_version);
  printf("  \"img_version\": %s,\n", json_string(field_text(head.img_version)).c_str());
  printf("  \"project_type\": %d,\n", project_type(head));
  printf("  \"meta_hdr_sz\": %u,\n", head.meta_hdr_sz);
  printf("  \"image_num\": %u,\n", head.image_num);
  printf("  \"header_crc32\": %" PRIu32 ",\n", head.header_crc32);
  printf("  \"package_length\": %s,\n", length.c_str());
  printf("  \"file_length\": %" PRIu64 ",\n", file_length);
  printf("  \"images\": [");
  for (uint32_t i = 0; i < entries_in_table(head); ++i) {
    printf(i == 0 ? "\n    " : ",\n    ");
    show_json_entry(head.images[i]);
  }
  printf("%s]\n}\n", entries_in_table(head) == 0 ? "" : "\n  ");
}

}  // namespace

void show_package(const std::string& path, bool as_json) {
  input_file file(path);
  const package_head head = read_head(file);
  if (as_json) {
    show_json(head, file.size());
  } else {
    show_text(head, file.size());
  }
}

}  // namespace tools::tarv_pkg
