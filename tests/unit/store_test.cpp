// The store: its room, seeking by data position, and the stream through partitions with bad blocks.
#include "store/stream.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "mtd/block_io.h"
#include "store/partition_groups.h"
#include "store/space.h"
#include "tests/unit/simulated_module.h"

namespace {

constexpr uint32_t kBlock = 131072;

struct store_module {
  const char* conf;
  uint32_t room[kStorePartitions];  // blocks
} kModules[] = {
    {"partition 0 userdata 12582912\nbad userdata 0 7 95\npartition 1 recoveryfs 5242880\n"
     "partition 2 recovery 3145728\nbad recovery 0 1\npartition 3 vexonv 3145728\nbad vexonv 23\n",
     {12, 8, 6, 7}},
    {"partition 0 userdata 10747904\npartition 1 recoveryfs 4194304\npartition 2 recovery 2097152\n"
     "partition 3 vexonv 2359296\n",
     {1, 0, 0, 2}},
    {"partition 0 userdata 10747904\npartition 1 recoveryfs 4325376\n", {1, 1, 0, 0}}};

class Store : public SimulatedModule {
 protected:
  void open_store(const std::string& conf, const std::string& first, const std::string& faults = "") {
    start(conf, faults);
    write(folder_ + "/mtd0.bin", first);
    ASSERT_GT(vexo_tarv_get_partition_valid_size(), 0u);
    ginfo->write_ctx = vexo_tarv_mtd_open_write("userdata");
    ASSERT_EQ(mtd_seek_write_pos(*ginfo->write_ctx, kBlock), 0);
  }

  static std::string read_back(uint32_t length, uint32_t most) {
    ginfo->read_ctx = vexo_tarv_mtd_open_read("userdata");
    EXPECT_EQ(mtd_seek_read_pos(*ginfo->read_ctx, kBlock), 0);
    std::string data(length, '\0');
    uint32_t offset = 0;
    for (uint32_t at = 0; at < length; at += most) {
      EXPECT_EQ(vexo_tarv_mtd_read(data.data() + at, std::min(most, length - at), &offset), 0);
    }
    char more = 0;
    EXPECT_EQ(vexo_tarv_mtd_read(&more, 1, &offset), -1);
    EXPECT_EQ(ginfo->read_ctx, nullptr);
    return data;
  }
};

TEST_F(Store, StreamRunsThroughAllPartitions) {
  const uint32_t seed = std::random_device()();
  std::mt19937 random(seed);
  for (const store_module& module : kModules) {
    uint32_t total = 0;
    std::set<uint32_t> lengths = {1};
    for (const uint32_t room : module.room) {
      total += room * kBlock;
      lengths.insert({total, total + 1});
    }
    for (const uint32_t length : lengths) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", length " + std::to_string(length));
      open_store(module.conf, "");
      const std::string data = noise(length, seed);
      int result = 0;
      for (uint32_t at = 0, n = 0; at < length && result == 0; at += n) {
        n = std::min(1 + static_cast<uint32_t>(random()) % (length % 2 == 0 ? 5000 : 3000000), length - at);
        result = vexo_tarv_mtd_append(data.data() + at, static_cast<int32_t>(n));
      }
      EXPECT_EQ(result, length > total ? -1 : 0);
      EXPECT_EQ(ginfo->write_ctx == nullptr, length >= total);
      EXPECT_EQ(vexo_tarv_mtd_append("", length < total ? 0 : 1), length < total ? 0 : -1);
      EXPECT_EQ(vexo_tarv_mtd_close_write(ginfo->write_ctx), 0);
      uint32_t left = std::min(length, total);
      EXPECT_TRUE(read_back(left, length % 2 == 0 ? 4096 : 5000) == data.substr(0, total));
      for (int i = 0; i < kStorePartitions; ++i) {
        EXPECT_EQ(ginfo->store_capacity[i], module.room[i] * kBlock);
        EXPECT_EQ(store_saved(i), std::min(left, module.room[i] * kBlock)) << i;
        left -= store_saved(i);
      }
      EXPECT_EQ(ghead->image_num, 0u);
      EXPECT_EQ(sim_restart(folder_), 0u);
    }
  }
}

TEST_F(Store, HeadAndPendingBytesAreFilledUpAndTheRestIsErased) {
  const auto filled = [](std::string bytes) { return bytes.resize(kBlock, '\0'), bytes; };
  open_store(kModules[1].conf, std::string(82 * kBlock, '#'));
  EXPECT_EQ(vexo_tarv_mtd_append("pending", 7), 0);
  EXPECT_EQ(vexo_tarv_mtd_append(nullptr, 7), -1);
  EXPECT_EQ(vexo_tarv_mtd_close_write(ginfo->write_ctx), 0);
  EXPECT_TRUE(flash(0) == std::string(kBlock, '#') + filled("pending") + std::string(80 * kBlock, '\xff'));
  const store_head_record record = {TARV_STORING_MAGIC, 1, 2, {}, 3, 0, 0, 0, 0, {}, 1};
  vexo_tarv_init_head_flash(record);
  const std::string head(reinterpret_cast<const char*>(&record), sizeof record);
  EXPECT_TRUE(flash(0) == filled(head) + std::string(81 * kBlock, '\xff'));

  open_store(kModules[1].conf, "", "program at 1 fail always");
  EXPECT_EQ(vexo_tarv_mtd_append("pending", 7), 0);
  EXPECT_EQ(vexo_tarv_mtd_close_write(ginfo->write_ctx), -1);
  EXPECT_EQ(sim_restart(folder_), 0u);
}

TEST_F(Store, ValidSizes) {
  const struct {
    const char *name, *conf;
    uint32_t size;
  } cases[] = {
      {"userdata", "partition 0 userdata 67108864\nbad userdata 3 511", 56229888},
      {"userdata", "partition 0 userdata 10616832", 0},
      {"userdata", "partition 0 userdata 131072\nbad userdata 0", 0},
      {"recoveryfs", "partition 1 recoveryfs 4325376", kBlock},
      {"vexonv", "partition 3 vexonv 2228224\nbad vexonv 16", 0},
      {"modem", "partition 4 modem 262144\nbad modem 1", kBlock},
      {"system", "partition 4 modem 262144", kNoValidSize},
      {"userdata", "", kNoValidSize},
  };
  for (const auto& c : cases) {
    start(c.conf);
    EXPECT_EQ(get_partition_valid_size(c.name), c.size) << c.conf;
  }
  // The stream cannot pass over the missing "recovery".
  start("partition 0 userdata 10747904\npartition 1 recoveryfs 4325376\npartition 3 vexonv 2228224");
  EXPECT_EQ(vexo_tarv_get_partition_valid_size(), 2 * kBlock);
  EXPECT_EQ(ginfo->store_partitions, 2);
}

TEST_F(Store, SeeksByDataPosition) {
  const std::tuple<const char*, uint32_t, int64_t> cases[] = {
      // bad blocks, position, landing or -1
      {"", 0, 0},           {"", 4100, 4100},  {"", 24576, 24576}, {"", 28672, -1},  {"0", 0, 4096},
      {"0 1", 4096, 12288}, {"1", 4096, 4096}, {"1", 8192, 12288}, {"0", 24576, -1}, {"0 1 2 3 4 5", 0, -1}};
  for (const auto& [bad, position, landing] : cases) {
    SCOPED_TRACE(std::string("bad ") + bad + ", to " + std::to_string(position));
    start(std::string("erase_size 4096\npage_size 512\npartition 0 p 24576\nbad p ") + bad);
    ASSERT_EQ(mtd_load_partitions(), 1);
    mtd_write_ctx* const ctx = mtd_write_open(*mtd_find_partition("p"));
    EXPECT_EQ(mtd_seek_write_pos(*ctx, position), landing < 0 ? -1 : 0);
    EXPECT_EQ(mtd_current_pos(ctx->fd), std::max<int64_t>(landing, 0));
    EXPECT_EQ(mtd_seek_pos(4096, 0, ctx->fd, 0), -1);
    EXPECT_EQ(mtd_write_close(ctx), 0);
  }
  EXPECT_EQ(mtd_seek_pos(24576, 4096, -1, 0), -1);  // the queries fail
}

}  // namespace
