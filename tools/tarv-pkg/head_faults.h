// What makes the updater refuse a package, or fail on it, found in the head alone.
//
// The maker looks for these faults before it writes anything, the checker in a finished package. Each
// function throws a refusal that names the first fault in the order in which the updater meets them, and
// says what to do about it.
#ifndef TARVOLIN_TOOLS_TARV_PKG_HEAD_FAULTS_H
#define TARVOLIN_TOOLS_TARV_PKG_HEAD_FAULTS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "package/format.h"
#include "tools/common/refusal.h"

namespace tools::tarv_pkg {

// A refusal for the sake of one image of the table.
struct image_refusal : refusal {
  image_refusal(const package_head& head, uint32_t i, const std::string& fault);
  uint32_t image;
};

// The updater reads the announced length as a signed 32-bit number.
constexpr uint64_t kMaxPackageLength = 2147483647;

void check_image_count(uint64_t image_num);
void check_total_length(uint64_t length);
void check_partition_name(std::string_view name);

// What the updater demands of the image table. Needs `image_num` of at most kMaxImages. A fault of one image
// is an image_refusal; so is that of check_no_partition_twice.
void check_entries(const package_head& head);
// One image at most for each partition: more than the updater demands, which takes a partition twice if it is
// of the store group. Needs `image_num` of at most kMaxImages.
void check_no_partition_twice(const package_head& head);

}  // namespace tools::tarv_pkg

#endif
