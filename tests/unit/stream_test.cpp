// The stream through the store partitions: where each byte lies, how it is read back, and where the store
// ends.
#include "store/stream.h"

#include <vector>

#include "main/run/record.h"
#include "store/head_block.h"
#include "store/partition_groups.h"
#include "store/space.h"
#include "tests/unit/simulated_module.h"

namespace {

constexpr size_t kBlock = 8192;
// Room for one block in each of the first two partitions and for two in the third; block 0 is bad.
constexpr char kStore[] =
    "erase_size 8192\npage_size 2048\npartition 0 userdata 10510336\nbad userdata 0\n"
    "partition 1 recoveryfs 4202496\npartition 2 recovery 2113536\n";
constexpr size_t kRoom = 4 * kBlock;

using pieces = std::vector<size_t>;  // sizes

class Stream : public SimulatedModule {
 protected:
  void open_for_append() {
    start(kStore);
    ASSERT_EQ(vexo_tarv_get_partition_valid_size(), kRoom);
    ASSERT_EQ(vexo_tarv_init_head_flash(*ghead), 0);
    ginfo->write_ctx = vexo_tarv_mtd_open_write(store_list[0]);
    ASSERT_NE(ginfo->write_ctx, nullptr);
    ASSERT_EQ(mtd_seek_write_pos(*ginfo->write_ctx, kBlock), 0);
  }

  // Appends the pieces one after the other. Returns the result of the last, after nothing but 0 before it.
  int append(const pieces& sizes) {
    int result = 0;
    size_t at = 0;
    for (const size_t size : sizes) {
      EXPECT_EQ(result, 0) << "before byte " << at;
      result = vexo_tarv_mtd_append(content_.data() + at, static_cast<int32_t>(size));
      at += size;
    }
    return result;
  }

  std::string read_back(const pieces& sizes) {
    ginfo->read_ctx = vexo_tarv_mtd_open_read(store_list[0]);
    EXPECT_EQ(mtd_seek_read_pos(*ginfo->read_ctx, kBlock), 0);
    std::string found;
    uint32_t offset = 0;
    for (const size_t size : sizes) {
      std::string piece(size, '\0');
      EXPECT_EQ(vexo_tarv_mtd_read(piece.data(), static_cast<uint32_t>(size), &offset), 0)
          << "after byte " << found.size();
      found += piece;
    }
    if (ginfo->read_ctx != nullptr) vexo_tarv_mtd_close_read(ginfo->read_ctx);
    return found;
  }

  const std::string content_ = noise(kRoom + kBlock);
};

TEST_F(Stream, RunsThroughThePartitions) {
  const struct {
    const char* what;
    pieces written, read;
    size_t saved[3];
    std::string goes_on_in;  // partition; empty: the store is full
  } cases[] = {
      {"within the first", {100, 5000}, {5100}, {5100, 0, 0}, "userdata"},
      {"fills the first exactly", {kBlock}, {kBlock}, {kBlock, 0, 0}, "recoveryfs"},
      {"one byte into the second", {kBlock - 1, 2}, {kBlock + 1}, {kBlock, 1, 0}, "recoveryfs"},
      {"across two borders at once", {7, 2 * kBlock}, {2 * kBlock + 7}, {kBlock, kBlock, 7}, "recovery"},
      {"read in other pieces",
       {9000, 9000},
       {1, kBlock - 1, kBlock, 1616},
       {kBlock, kBlock, 1616},
       "recovery"},
      {"fills the store exactly", {kRoom - 1, 1}, {kRoom}, {kBlock, kBlock, 2 * kBlock}, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    open_for_append();
    EXPECT_EQ(append(c.written), 0);
    EXPECT_EQ(ginfo->write_ctx == nullptr ? "" : ginfo->write_ctx->partition->name, c.goes_on_in);
    EXPECT_EQ(vexo_tarv_mtd_close_write(ginfo->write_ctx), 0);
    size_t total = 0;
    for (const size_t size : c.read) total += size;
    EXPECT_TRUE(read_back(c.read) == content_.substr(0, total));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(store_saved(i), c.saved[i]) << i;
    // The bad block, the head record's block, then the stream.
    const size_t in_first = c.saved[0];
    EXPECT_TRUE(flash(0).substr(2 * kBlock, in_first) == content_.substr(0, in_first));
    EXPECT_TRUE(flash(2).substr(0, c.saved[2]) == content_.substr(in_first + c.saved[1], c.saved[2]));
    EXPECT_EQ(sim_restart(folder_), 0u);
  }
}

TEST_F(Stream, RefusesWhatDoesNotFit) {
  for (const pieces& sizes : {pieces{kRoom + 1}, pieces{kRoom, 1}, pieces{kRoom - 5, 6}}) {
    open_for_append();
    EXPECT_EQ(append(sizes), -1) << sizes[0];
    EXPECT_EQ(ginfo->write_ctx, nullptr);  // the end of the store has closed it
  }
}

TEST_F(Stream, TakesNothingWithoutDataOrPartition) {
  open_for_append();
  EXPECT_EQ(vexo_tarv_mtd_append(nullptr, 7), -1);
  EXPECT_EQ(vexo_tarv_mtd_append("x", 0), 0);
  EXPECT_EQ(vexo_tarv_mtd_append("x", -1), 0);
  EXPECT_EQ(vexo_tarv_mtd_close_write(ginfo->write_ctx), 0);
  EXPECT_EQ(store_saved(0), 0u);
  EXPECT_EQ(vexo_tarv_mtd_open_write(nullptr), nullptr);
  EXPECT_EQ(vexo_tarv_mtd_open_read("vexonv"), nullptr);
  EXPECT_EQ(vexo_tarv_mtd_close_write(nullptr), 0);
}

}  // namespace
