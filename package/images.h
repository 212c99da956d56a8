// Walking the image table of the package in hand (ginfo->head), group by group.
#ifndef TARVOLIN_PACKAGE_IMAGES_H
#define TARVOLIN_PACKAGE_IMAGES_H

#include <algorithm>

#include "main/run/record.h"
#include "package/head_rules.h"

// The entries in use, for range-for and algorithms.
struct image_table {
  const package_entry* begin() const { return ginfo->head.images; }
  const package_entry* end() const { return ginfo->head.images + ginfo->head.image_num; }
};

// True when the package holds an image of the group.
[[nodiscard]] inline bool has_image_of(int group) {
  const image_table table;
  return std::any_of(table.begin(), table.end(),
                     [&](const package_entry& entry) { return group_of(entry) == group; });
}

// Calls `work(entry, index)` for each image of the group, in table order, until one returns other than 0.
// Returns that result, or 0.
template <typename Work>
[[nodiscard]] int for_each_image_of(int group, Work work) {
  uint32_t index = 0;
  for (const package_entry& entry : image_table()) {
    const uint32_t current = index++;
    if (group_of(entry) != group) continue;
    if (const int result = work(entry, current); result != 0) return result;
  }
  return 0;
}

#endif
