// The partition list. Input: the number of a partition that does not answer, then the text of the list.
#include "mtd/partitions.h"

#include <algorithm>

#include "tests/fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  fake_silent = data[0];
  fake_list.assign(reinterpret_cast<const char*>(data) + 1, size - 1);
  const int count = mtd_load_partitions();
  REQUIRE(count >= -1 && count <= 1 + std::count(fake_list.begin(), fake_list.end(), '\n'));
  // Whatever stands behind quotes may have become a name.
  for (size_t from = 0; (from = fake_list.find('"', from)) != std::string::npos;) {
    const std::string name = fake_list.substr(++from, 63);
    const mtd_partition* const found = mtd_find_partition(name.substr(0, name.find('"')).c_str());
    if (found == nullptr) continue;
    REQUIRE(found->index >= 0 && found->index < 64);
    if (found->erase_size > 65536) continue;  // a size that costs time and finds nothing
    mtd_read_ctx* const ctx = mtd_read_open(*found);
    REQUIRE((ctx != nullptr) == (found->erase_size > 0));
    if (ctx != nullptr) mtd_read_close(ctx);
  }
  REQUIRE(fake_open == 0);
  return 0;
}
