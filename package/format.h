// Layout of a firmware package, as bytes on the wire.
//
// A package is one head of 3536 bytes followed by the images' data, back to back, in the order of the head's
// table. All numbers are little-endian; texts are 8-bit and end with a NUL inside their field.
// docs/package-format.md has the same for package makers. This header includes nothing of ours.
#ifndef TARVOLIN_PACKAGE_FORMAT_H
#define TARVOLIN_PACKAGE_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are read in place and are little-endian");

constexpr uint32_t TARV_PACKAGE_MAGIC = 0x7665786F;  // file bytes "oxev"
constexpr uint32_t kPackageHeadSize = 3536;          // bytes
constexpr uint32_t kMaxImages = 32;

// One row of the image table.
struct package_entry {
  char name[32];       // partition that the image is for; also selects its group
  char file_name[68];  // name of the image's file in the run directory (file group only)
  uint32_t size;       // bytes of image data
  uint32_t crc;        // CRC-32/JAMCRC of these bytes
};

struct package_head {
  uint32_t magic;          // TARV_PACKAGE_MAGIC
  uint16_t major_version;  // informative
  uint16_t minor_version;  // informative
  char img_version[64];    // version text; its first five characters are the project id
  uint16_t meta_hdr_sz;    // kPackageHeadSize
  uint16_t image_num;      // entries in use, 0 to kMaxImages
  package_entry images[kMaxImages];
  uint32_t header_crc32;  // CRC-32/JAMCRC of all bytes before this field
};

static_assert(sizeof(package_entry) == 108 && offsetof(package_entry, file_name) == 32 &&
                  offsetof(package_entry, size) == 100 && offsetof(package_entry, crc) == 104,
              "image table entry layout");
static_assert(sizeof(package_head) == kPackageHeadSize && offsetof(package_head, img_version) == 8 &&
                  offsetof(package_head, meta_hdr_sz) == 72 && offsetof(package_head, image_num) == 74 &&
                  offsetof(package_head, images) == 76 && offsetof(package_head, header_crc32) == 3532,
              "package head layout");

// The text in a fixed field: up to its NUL, or the whole field when it has none.
template <size_t N>
std::string_view field_text(const char (&field)[N]) {
  return {field, strnlen(field, N)};
}

// Project type of the id that the first five characters of `text` name; -1 when `text` is null or no row
// matches.
[[nodiscard]] int vexo_tarv_get_project_type(const char* text);

// Reads at most 1023 bytes of the file `path` and stores the text up to its first NUL, at most `capacity` - 1
// characters, NUL-terminated, in `dst`. Nothing is trimmed. Returns the number of characters stored; 0 with
// an empty `dst` when the file cannot be opened; -1 with `dst` untouched when it is empty or cannot be read,
// or when `dst` is null.
[[nodiscard]] int read_file_text(const char* path, char* dst, size_t capacity);

// The same, bounded by the array itself.
template <size_t N>
[[nodiscard]] int read_file_text(const char* path, char (&dst)[N]) {
  return read_file_text(path, dst, N);
}

#endif
