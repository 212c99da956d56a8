// The check of the store: what it calls right stands there.
#include "package/readback_check.h"

#include <cstring>

#include "package/crc32.h"
#include "store/space.h"
#include "store/stream.h"
#include "tests/unit/simulated_module.h"

namespace {

class Readback : public SimulatedModule {};

// Sizes that wrap can announce images which have never come. They are not behind the end of a store that is
// full, and not at its beginning either.
TEST_F(Readback, NothingStandsBehindAFullStore) {
  start("erase_size 8192\npage_size 2048\npartition 0 userdata 10502144\n");  // room for one block
  const std::string data = noise(8192);
  crc32_init_table();
  const package_entry taken = {"system", "", 8192, crc32_update(kCrcStart, data.data(), data.size())};
  const package_entry empty = {"modem", "", 0, kCrcStart};
  EXPECT_EQ(vexo_tarv_get_partition_valid_size(), 8192u);
  vexo_tarv_init_head_flash(*ghead);
  ginfo->write_ctx = vexo_tarv_mtd_open_write("userdata");
  ASSERT_NE(ginfo->write_ctx, nullptr);
  EXPECT_EQ(mtd_seek_write_pos(*ginfo->write_ctx, 8192), 0);
  EXPECT_EQ(vexo_tarv_mtd_append(data.data(), 8192), 0);

  ginfo->head.image_num = 2;
  ginfo->head.images[0] = taken;
  ginfo->head.images[1] = empty;
  EXPECT_EQ(vexo_tarv_check_flash(), 0);
  ginfo->head.images[1] = taken;
  EXPECT_EQ(vexo_tarv_check_flash(), -1);
  EXPECT_EQ(sim_restart(folder_), 0u);
}

}  // namespace
