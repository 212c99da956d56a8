// Room in the store partitions, and seeking in a partition by data position.
#include "store/space.h"

#include <algorithm>

#include "main/run/record.h"
#include "mtd/block_io.h"
#include "tests/unit/simulated_module.h"

namespace {

using Space = SimulatedModule;

constexpr uint32_t kBlock = 131072;

TEST_F(Space, IsGoodBlocksLessHeadBlockAndReserve) {
  const struct {
    const char *what, *name, *module;
    uint32_t room;
  } cases[] = {
      {"bad blocks do not count", "userdata", "partition 0 userdata 67108864\nbad userdata 3 511",
       429 * kBlock},
      {"reserve and head block take all", "userdata", "partition 0 userdata 10616832", 0},
      {"they take more than all", "userdata", "partition 0 userdata 131072\nbad userdata 0", 0},
      {"no head block but in userdata", "recoveryfs", "partition 1 recoveryfs 4325376", kBlock},
      {"a bad block takes the last of the room", "vexonv", "partition 3 vexonv 2228224\nbad vexonv 16", 0},
      {"no store partition, no reserve", "modem", "partition 4 modem 262144\nbad modem 1", kBlock},
      {"no such partition", "userdata", "", kNoValidSize},
  };
  for (const auto& c : cases) {
    start(c.module);
    EXPECT_EQ(get_partition_valid_size(c.name), c.room) << c.what;
  }
}

// The stream cannot pass over the missing "recovery".
TEST_F(Space, OfTheStoreEndsBeforeAMissingPartition) {
  start("partition 0 userdata 10747904\npartition 1 recoveryfs 4325376\npartition 3 vexonv 2228224");
  EXPECT_EQ(vexo_tarv_get_partition_valid_size(), 2 * kBlock);
  EXPECT_EQ(ginfo->store_partitions, 2);
  EXPECT_EQ(ginfo->store_capacity[1], kBlock);
  EXPECT_EQ(ginfo->store_capacity[3], 0u);
}

TEST_F(Space, IsFoundByDataPosition) {
  const struct {
    const char* bad;
    uint32_t position;
    int64_t landing;  // -1: refused
  } cases[] = {
      {"", 0, 0},           {"", 4100, 4100},  {"", 24576, 24576}, {"", 28672, -1},  {"0", 0, 4096},
      {"0 1", 4096, 12288}, {"1", 4096, 4096}, {"1", 8192, 12288}, {"0", 24576, -1}, {"0 1 2 3 4 5", 0, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string("bad ") + c.bad + ", to " + std::to_string(c.position));
    start(std::string("erase_size 4096\npage_size 512\npartition 0 p 24576\nbad p ") + c.bad);
    ASSERT_EQ(mtd_load_partitions(), 1);
    mtd_write_ctx* const ctx = mtd_write_open(*mtd_find_partition("p"));
    EXPECT_EQ(mtd_seek_write_pos(*ctx, c.position), c.landing < 0 ? -1 : 0);
    EXPECT_EQ(mtd_current_pos(ctx->fd), std::max<int64_t>(c.landing, 0));
    EXPECT_EQ(mtd_write_close(ctx), 0);
  }
}

TEST_F(Space, IsNotFoundWithoutBlocksOrAnswers) {
  start("");
  EXPECT_EQ(mtd_seek_pos(4096, 0, -1, 0), -1);
  EXPECT_EQ(mtd_seek_pos(24576, 4096, -1, 0), -1);  // the queries fail
}

}  // namespace
